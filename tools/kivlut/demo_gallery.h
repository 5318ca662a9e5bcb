// The built-in demo: a generated range image of machined parts and the gallery of every mapping.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "KivLUTSetting.h"

namespace kivlut {

// 640 x 480 unsigned 16-bit heights of machined parts (planes, steps, a cylinder, a drilled hole
// with no data, sensor noise), with the resolution that makes them millimetres. The same seed
// gives the same image.
KIVMV::KivRangeImage MakeMachinedPartsScene(unsigned seed = 2026);

// Writes the scene (as a 16-bit PNG and as raw), every map under every mapping, the legend chart,
// the normal map and the Phong shading into `outDir`, with an index.html contact sheet that shows
// each picture with the kivlut command that makes it. Progress lines go to `log`. Returns 0, or 1
// after a line on `log` when a picture could not be made.
int WriteGallery(const std::filesystem::path& outDir, std::ostream& log);

// The kivlut command lines of the gallery, each as the words a user types after `kivlut`, in the
// order WriteGallery runs them (inputs and outputs relative to its folder).
std::vector<std::vector<std::string>> GalleryCommands();

}  // namespace kivlut
