// The built-in demo: the gallery of every mapping applied to the generated scene.
#pragma once

#include <filesystem>
#include <iosfwd>

namespace kivlut {

// Writes the scene (as a 16-bit PNG, as raw and as an 8-bit copy), then the picture of every
// gallery command into `outDir`, with an index.html contact sheet that shows each picture with
// the kivlut command that makes it. Progress lines go to `log`. Returns 0, or 1 after a line on
// `log` when a picture could not be made.
int WriteGallery(const std::filesystem::path& outDir, std::ostream& log);

}  // namespace kivlut
