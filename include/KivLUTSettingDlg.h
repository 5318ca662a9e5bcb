// The colour-map dialog: a modal window in which an operator picks one of the seven colour maps
// for a grey image while a preview shows the image coloured with it, and the process-wide
// current colour map that the choice is stored in. Library KivLUTSettingDlg (Qt 5 Widgets).
#pragma once

#include "KivImage.h"
#include "KivLUTSettingExport.h"
#include "KivLUTStatus.h"

namespace KIVMV {

struct KivLUTSettingDlgState;

// Every method runs on the thread of the process's QApplication (the GUI thread) and returns a
// status code; none throws.
class KIVLUT_API KivLUTSettingDlg {
 public:
  // Makes sure a QApplication exists: when the process has no application object, one is
  // created (argument count 0) and lives until the process ends.
  KivLUTSettingDlg();
  // Deletes an application object this facade created itself.
  ~KivLUTSettingDlg();

  // The facade owns its state record; copies would share it.
  KivLUTSettingDlg(const KivLUTSettingDlg&) = delete;
  KivLUTSettingDlg& operator=(const KivLUTSettingDlg&) = delete;

  // Shows the modal window for a single-channel 8- or 16-bit image and returns LUT_OK once it
  // closes, whatever closed it; OK stores the chosen map as the current colour map. A bit depth
  // other than 8 or 16 bits (LUT_ERR_PARAM_1), an empty image (LUT_ERR_IMAGE_EMPTY) or more than
  // one channel (LUT_ERR_IMAGE_CHANNELS), tested in this order, show a warning instead.
  // Without a usable QApplication (only a QCoreApplication, or called from another thread)
  // nothing is shown and the answer is LUT_ERR_ARRAY_APPLY_FAILED, as for a failure while the
  // window is built.
  long ShowDialog(KivImage& image);

  // Colours `src` into `dst` with the current colour map, as KivLUTSetting::SetColorLUT does,
  // without showing anything: LUT_ERR_IMAGE_EMPTY, LUT_ERR_IMAGE_CHANNELS, or the colouring's
  // status.
  long Execute(KivImage& src, KivImage* dst);

  // Stores mapType (0 to 10) as the current colour map; LUT_ERR_PARAM_1 for any other value.
  long SetParam(int mapType);

  // Writes the current colour map (0 until something is stored) to *mapType; LUT_ERR_PARAM_1
  // for a null pointer.
  long GetParam(int* mapType);

 private:
  KivLUTSettingDlgState* state_;
};

}  // namespace KIVMV
