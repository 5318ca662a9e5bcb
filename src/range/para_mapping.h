// The parameterised colourings: the five-point scale on range images and float arrays, and the
// segmenting colouring that cuts the data into four value segments with a histogram chart and
// legend ticks.
//
// All three work in the normalised domain: the valid values rescaled to [-1, 1]
// (para_normalisation.h). Break values come from the caller's LinearColorMapLUT_Para or, in
// automatic mode, from the data.
#pragma once

#include <vector>

#include "Kiv3DArray.h"
#include "KivColor.h"
#include "KivColorArray.h"
#include "KivRangeImage.h"
#include "KivVar.h"
#include "LinearColorMapLUT_Para.h"
#include "tables/colour_tables.h"

namespace KIVMV {

// The checks of a caller's record (manual mode), in order: value0 > value1 or value1 > value2,
// value2 > value3, value3 > value4 (LUT_ERR_PARA_BOUND_1, _3, _4); each index below 0 or above
// the next (LUT_ERR_PARA_INDEX_1 .. _4); index4 above 1023 (LUT_ERR_PARA_COUNT). NaN values pass.
long CheckParaRecord(const LinearColorMapLUT_Para& para);

// The legend sizes: none checked when sizeA is 0; else sizeA, then sizeB, must be 2, 4, 8 or 16
// (LUT_ERR_PARAM_6, LUT_ERR_PARAM_7).
long CheckLegendSizes(int sizeA, int sizeB);

// The legend ticks, upper half first: index4 - k * ((index4 - index2) / sizeB) for k = 0..sizeB,
// then index2 - k * ((index2 - index0 + 1) / sizeA) for k = 1..sizeA, negatives as 0 (automatic
// mode: 1023 and 512 / sizeB, 511 and 512 / sizeA). None unless both sizes are non-zero.
std::vector<int> LegendTicks(const LinearColorMapLUT_Para& para, bool automatic, int sizeA,
                             int sizeB);

// Segment k (0..3) of the segmenting colouring takes grey entries 64k .. 64k + 63. The engine reads
// 256-entry tables, so the quarter is padded with its last entry: an index past 63 (only the
// one-entry colouring of a collapsed segment can ask for one) reads entry 63 of the quarter.
ColourTable QuarterOfParaGrey(int segment);

// The five-point scale on a range image. Works on a float copy in physical units (the caller's
// image is not changed); writes the break values (data units) and entries it used back into
// `para` in automatic mode. Stages: 11100001 empty image, 11200001 map type, 20218106 copying or
// sizing the output (a null `out` included), 20218105 anything later.
long LinearColourMapFivePoint(const KivRangeImage& image, KivColorArray* out,
                              LinearColorMapLUT_Para& para, const KivColor& underColor,
                              const KivColor& overColor, int mapType, bool automatic);

// The five-point scale on a float array, which is normalised in place (the caller sees the
// normalised values afterwards). Manual break values are taken as values of the normalised
// domain; nothing is written back. Table choice per SelectParaColourTableForArray.
long LinearColourMapFivePointArray(Kiv3DFloatArray& values, KivColorArray* out,
                                   const LinearColorMapLUT_Para& para, const KivColor& underColor,
                                   const KivColor& overColor, int mapType, bool automatic);

// The segmenting colouring. `out` is the whole picture: each pixel from the coloured segment
// whose mask holds it; a pixel in no mask takes the map's invalid colour when invalid, underColor
// below t0, overColor above t4. Appended to a non-null vectorA: the chart (KivImage 800 x 600,
// 3 channels), the four coloured segments (KivImage width x height, 3 channels), the four counts
// (int). Appended to a non-null vectorB: the legend ticks. Stages as LinearColourMapFivePoint.
long ColourMapSegmented(const KivRangeImage& image, KivColorArray* out,
                        const LinearColorMapLUT_Para& para, const KivColor& underColor,
                        const KivColor& overColor, int mapType, bool automatic, int sizeA,
                        int sizeB, KivVarArray* vectorA, KivVarArray* vectorB);

}  // namespace KIVMV
