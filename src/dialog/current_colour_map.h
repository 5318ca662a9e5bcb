// The process-wide current colour map that the dialog's OK button and SetParam store and that
// GetParam, Execute and the opening window read. A plain int, touched only on the GUI thread.
#pragma once

namespace KIVMV {
namespace dialog {

int CurrentColourMap();
void StoreCurrentColourMap(int mapType);

}  // namespace dialog
}  // namespace KIVMV
