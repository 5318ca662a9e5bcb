#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "Kiv3DArray.h"
#include "KivColorArray.h"
#include "KivImage.h"
#include "KivRangeImage.h"
#include "KivVector3d.h"

namespace KIVMV {
namespace {

// A growing std::vector moves its elements instead of copying them only when moves cannot throw.
template <typename... Container>
constexpr bool kMoveWithoutThrowing = ((std::is_nothrow_move_constructible_v<Container> &&
                                        std::is_nothrow_move_assignable_v<Container>)&&...);
static_assert(kMoveWithoutThrowing<KivImage, KivRangeImage, KivColorArray, Kiv3DFloatArray,
                                   Kiv3DIntArray, KivVector3dArray>,
              "every platform container moves without throwing");

// The matrix is a member like the others, so the containers stay standard layout.
template <typename... Container>
constexpr bool kStandardLayout = (std::is_standard_layout_v<Container> && ...);
static_assert(
    kStandardLayout<KivImage, KivRangeImage, KivColorArray, Kiv3DFloatArray, Kiv3DIntArray>,
    "every platform container is standard layout");

template <typename Container>
void ExpectCopiesShareAndDeepCopiesDoNot(const Container& original) {
  Container copy(original);
  Container assigned;
  assigned = original;
  EXPECT_EQ(original.Mat().data, copy.Mat().data);
  EXPECT_EQ(original.Mat().data, assigned.Mat().data);
  const Container deep = original.DeepCopy();
  EXPECT_NE(original.Mat().data, deep.Mat().data);
  EXPECT_EQ(original.Mat().size(), deep.Mat().size());
  EXPECT_EQ(original.Mat().type(), deep.Mat().type());
}

TEST(MatMember, CopiesShareTheMatrixAndDeepCopiesOwnOne) {
  ExpectCopiesShareAndDeepCopiesDoNot(KivImage(3, 2, 3, KIV_IMAGE_16U));
  ExpectCopiesShareAndDeepCopiesDoNot(KivRangeImage(3, 2, KIV_DATA_F32));
  KivColorArray colours;
  colours.SetSize(3, 2, 4);
  ExpectCopiesShareAndDeepCopiesDoNot(colours);
  ExpectCopiesShareAndDeepCopiesDoNot(Kiv3DFloatArray(5));
  ExpectCopiesShareAndDeepCopiesDoNot(Kiv3DIntArray(5));
}

TEST(MatMember, AMoveLeavesTheMatrixWithTheTarget) {
  KivRangeImage source(4, 3, KIV_DATA_U16);
  const unsigned char* pixels = source.Data();
  KivRangeImage target(std::move(source));
  EXPECT_EQ(pixels, target.Data());
  KivRangeImage assigned;
  assigned = std::move(target);
  EXPECT_EQ(pixels, assigned.Data());
  EXPECT_EQ(4, assigned.Width());
  EXPECT_EQ(3, assigned.Height());
}

}  // namespace
}  // namespace KIVMV
