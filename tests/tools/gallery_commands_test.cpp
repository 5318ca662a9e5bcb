// The gallery's commands are what the contact sheet promises: every named map under every mapping
// and variant, each command a valid kivlut command line writing a PNG of its own into the folder.
#include "gallery_commands.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "gallery_test_support.h"
#include "options.h"

namespace kivlut {
namespace {

namespace fs = std::filesystem;

using testing_support::Joined;
using testing_support::Parse;

TEST(GalleryCommands, CommandsCoverEveryMapUnderEveryMapping) {
  // (operation, variant) -> maps seen
  std::map<std::string, std::set<int>> seen;
  std::set<std::string> outputs;
  for (const GalleryCommand& command : GalleryCommands()) {
    const std::vector<std::string>& args = command.args;
    const Options o = Parse(args);
    EXPECT_TRUE(outputs.insert(o.output).second) << "two commands write " << o.output;
    EXPECT_EQ(fs::path(o.output).extension(), ".png") << Joined(args);
    EXPECT_EQ(fs::path(o.output).filename().string(), o.output) << "outputs stay in the folder";
    std::string variant = OperationName(o.operation);
    if (o.operation == Operation::kEqualize || o.operation == Operation::kLinear ||
        o.operation == Operation::kScale || o.operation == Operation::kNormals ||
        o.operation == Operation::kShade) {
      EXPECT_EQ(o.axes.resolution[0], 0.1) << Joined(args);
      EXPECT_EQ(o.axes.resolution[1], 0.1) << Joined(args);
      EXPECT_EQ(o.axes.resolution[2], 0.001) << Joined(args);
      if (!o.raw) {
        EXPECT_EQ(o.inputs, std::vector<std::string>{"machined_parts.png"});
      }
    }
    if (o.raw) variant += " raw";
    if (o.asArray) variant += " array";
    if (o.bounds) variant += " bounds";
    if (o.indexRange) variant += " index";
    if (o.percentile) variant += " percentile";
    if (o.automatic) variant += " auto";
    if (o.scaleValues) variant += " values";
    if (!o.legendPath.empty()) variant += " legend";
    if (o.segmented) variant += " segmented";
    if (o.light) variant += " light";
    if (o.equalizeGrey) variant += " equalize";
    if (!o.tableName.empty()) variant += " " + o.tableName;
    if (o.reverse) variant += " reverse";
    if (o.invalid) variant += " invalid";
    if (o.colorbar) variant += " colorbar";
    seen[variant].insert(o.mapType);
  }
  const std::set<int> allMaps = {0, 1, 2, 3, 4, 5, 6};
  for (const char* variant :
       {"equalize", "equalize bounds", "equalize bounds index", "linear", "linear bounds",
        "linear bounds index", "linear percentile", "equalize array", "linear array", "grey",
        "grey equalize", "grey bounds index"}) {
    EXPECT_EQ(seen[variant], allMaps) << variant;
  }
  EXPECT_EQ(seen["scale auto"], (std::set<int>{1, 2, 3, 4, 5, 6}));
  for (const char* variant :
       {"scale values", "scale auto legend", "scale auto segmented", "normals", "shade",
        "shade light", "blend", "equalize raw", "equalize viridis", "linear turbo",
        "linear percentile magma reverse", "equalize turbo colorbar",
        "linear bounds cividis invalid colorbar"}) {
    EXPECT_EQ(seen[variant].size(), 1u) << variant;
  }
}

TEST(GalleryCommands, EachCommandIsInTheSectionOfItsOperationWithACaption) {
  for (const GalleryCommand& command : GalleryCommands()) {
    ASSERT_FALSE(command.args.empty());
    EXPECT_FALSE(command.caption.empty()) << Joined(command.args);
    EXPECT_EQ(OperationName(Parse(command.args).operation), command.args[0]);
  }
}

}  // namespace
}  // namespace kivlut
