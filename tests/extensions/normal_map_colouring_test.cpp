#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "KivColoring.h"
#include "KivLUTSetting.h"
#include "common/load_time_config.h"
#include "shading/normal_map.h"

namespace KIVMV {
namespace {

// (v / 2 + 1/2) x 255 truncated, restated for the reference.
uint8_t ByteOf(float v) { return static_cast<uint8_t>(static_cast<int>((v * 0.5 + 0.5) * 255.0)); }

bool Missing(const KivVector3d& n) {
  const float c[3] = {n.X(), n.Y(), n.Z()};
  for (float v : c) {
    if (!std::isfinite(v)) return true;
  }
  return c[0] == 0.0f && c[1] == 0.0f && c[2] == 0.0f;
}

KivVector3dArray RandomNormals(int n, std::mt19937_64& random) {
  KivVector3dArray normals;
  normals.SetSize(n);
  std::uniform_real_distribution<float> component(-1.0f, 1.0f);
  std::uniform_int_distribution<int> pick(0, 19);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  for (int i = 0; i < n; ++i) {
    KivVector3d v(component(random), component(random), component(random));
    switch (pick(random)) {
      case 0:
        v = KivVector3d(nan, 0.5f, 0.5f);
        break;
      case 1:
        v = KivVector3d(0.1f, -inf, 0.2f);
        break;
      case 2:
        v = KivVector3d(0.0f, 0.0f, 0.0f);
        break;
      case 3:
        v = KivVector3d(0.3f, 0.2f, nan);
        break;
      default:
        break;
    }
    normals[i] = v;
  }
  return normals;
}

TEST(ColorNormalMap, ColoursEveryNormalAndOnlyMissingOnesWithNoData) {
  std::mt19937_64 random(21);
  const KivRgb noData{5, 6, 7};
  for (int n : {1, 2, 7, 64, 1001, 20000}) {
    const KivVector3dArray normals = RandomNormals(n, random);
    for (int channels : {3, 4}) {
      KivColorArray out;
      ASSERT_EQ(KivColorNormalMap(normals, &out, noData, channels), KIV_EXT_OK);
      ASSERT_EQ(out.Length(), n);
      ASSERT_EQ(out.Channel(), channels);
      for (int i = 0; i < n; ++i) {
        const uint8_t* c = out.Data() + static_cast<size_t>(channels) * i;
        const KivVector3d& v = normals[i];
        if (Missing(v)) {
          ASSERT_EQ(c[0], noData.b);
          ASSERT_EQ(c[1], noData.g);
          ASSERT_EQ(c[2], noData.r);
          if (channels == 4) {
            ASSERT_EQ(c[3], 0);
          }
        } else {
          ASSERT_EQ(c[0], ByteOf(v.Z())) << i;
          ASSERT_EQ(c[1], ByteOf(v.Y())) << i;
          ASSERT_EQ(c[2], ByteOf(v.X())) << i;
          if (channels == 4) {
            ASSERT_EQ(c[3], 255);
          }
        }
      }
    }
  }
}

TEST(ColorNormalMap, GivesKivLUTSettingsBytesWhereItsChunksLeaveNoMark) {
  std::mt19937_64 random(22);
  KivLUTSetting lut;
  for (int n : {2, 9, 100, 5003}) {
    KivVector3dArray normals = RandomNormals(n, random);
    KivColorArray theirs, ours;
    ASSERT_EQ(lut.SetColorNormalMap(normals, &theirs), 0);
    ASSERT_EQ(KivColorNormalMap(normals, &ours), KIV_EXT_OK);
    const std::vector<int32_t> bounds = NormalMapChunkBoundaries(n, ConfiguredWorkerCount());
    int compared = 0;
    for (size_t b = 0; b + 1 < bounds.size(); ++b) {
      for (int i = bounds[b]; i < bounds[b + 1]; ++i) {
        // Its chunks blacken the position of a NaN x counted from the chunk's start.
        if (std::isnan(normals[i - bounds[b]].X()) || Missing(normals[i])) continue;
        ++compared;
        for (int k = 0; k < 3; ++k) {
          ASSERT_EQ(ours.Data()[3 * i + k], theirs.Data()[3 * i + k]) << "entry " << i;
        }
      }
    }
    EXPECT_GE(compared, n / 2);
  }
}

TEST(ColorNormalMap, ANormalFacingTheViewerAndOneAlongX) {
  KivVector3dArray normals;
  normals.SetSize(2);
  normals[0] = KivVector3d(0.0f, 0.0f, 1.0f);
  normals[1] = KivVector3d(1.0f, 0.0f, 0.0f);
  KivColorArray out;
  ASSERT_EQ(KivColorNormalMap(normals, &out), KIV_EXT_OK);
  const std::vector<uint8_t> bytes(out.Data(), out.Data() + 6);
  EXPECT_EQ(bytes, (std::vector<uint8_t>{255, 127, 127, 127, 127, 255}));
}

TEST(ColorNormalMap, RefusalsTouchNothing) {
  KivVector3dArray normals;
  normals.SetSize(3);
  KivVector3dArray none;
  KivColorArray out;
  out.Create(2, 3);
  out.Data()[0] = 77;
  EXPECT_EQ(KivColorNormalMap(normals, nullptr), KIV_EXT_ERR_NULL_OUTPUT);
  EXPECT_EQ(KivColorNormalMap(none, &out), KIV_EXT_ERR_EMPTY_INPUT);
  EXPECT_EQ(KivColorNormalMap(normals, &out, KivRgb{}, 2), KIV_EXT_ERR_CHANNELS);
  EXPECT_EQ(out.Length(), 2);
  EXPECT_EQ(out.Data()[0], 77);
}

}  // namespace
}  // namespace KIVMV
