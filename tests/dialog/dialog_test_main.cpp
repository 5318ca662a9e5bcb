// The dialog tests run under Qt's offscreen platform. ctest sets it; this covers running the
// program by hand, where no display may exist. The application itself is made by the facade.
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
