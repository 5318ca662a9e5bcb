// Cutting normalised height data into the four value segments of the five-point scale.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace KIVMV {

// Splits a single-channel float matrix at the five break values t0..t4: mask k (8-bit, 255
// inside, 0 outside) holds t(k-1) <= v < t(k), and mask 4 also v == t4; only the last segment is
// closed at its upper end. Segment k is a copy of src with every element outside mask k set to
// -FLT_MAX; count k is the number of elements outside mask k. NaN lies in no mask. Each mask is
// tested on its own, so break values that are not ascending simply give empty or overlapping
// masks. Every output is a new matrix of src's shape, so an output may alias src.
//
// The float samples are compared with the break values rounded to float (numeric::NarrowToFloat),
// as OpenCV compares a float matrix with a scalar.
//
// Throws cv::Exception (assertion "src.type() == CV_32FC1") for any other matrix type, the empty
// default matrix included.
void generateSegmentedImages(const cv::Mat& src, cv::Mat& mask1, cv::Mat& mask2, cv::Mat& mask3,
                             cv::Mat& mask4, double t0, double t1, double t2, double t3, double t4,
                             cv::Mat& segment1, cv::Mat& segment2, cv::Mat& segment3,
                             cv::Mat& segment4, int& count1, int& count2, int& count3, int& count4);

namespace segmentation_detail {

// A 64-bit element count as an int, held at INT_MAX when it is larger.
int ClampCount(int64_t count);

}  // namespace segmentation_detail

}  // namespace KIVMV
