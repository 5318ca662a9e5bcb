// The command catalogue of the demo gallery: each picture as the kivlut command line that makes it.
#pragma once

#include <string>
#include <vector>

namespace kivlut {

// The scene as the gallery writes it before running any command, relative to its folder.
inline constexpr const char* kSceneFile = "machined_parts.png";
inline constexpr const char* kSceneRawFile = "machined_parts.raw";
inline constexpr const char* kScene8BitFile = "machined_parts_8bit.png";

// One picture: what it shows, and the words a user types after `kivlut` to make it, inputs and
// outputs relative to the gallery folder. Its operation, args[0], is its section of the gallery.
struct GalleryCommand {
  std::string caption;
  std::vector<std::string> args;
};

// In the order the gallery runs them: blend reads pictures that earlier commands write.
std::vector<GalleryCommand> GalleryCommands();

}  // namespace kivlut
