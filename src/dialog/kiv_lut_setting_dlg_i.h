// The colour-map window: a modal QDialog with the combo box of the seven maps, OK and CANCEL,
// and the platform's image window as the live preview, coloured through the same routine as
// KivLUTSetting::SetColorLUT on a grey image.
#pragma once

#include <QDialog>
#include <string>

#include "KivImage.h"
#include "KivMultiLanguage.h"
#include "dialog/kiv_lut_setting_form.h"
#include "frame/kiv_lut_setting_impl.h"

class QResizeEvent;

namespace KIVMV {

// The string-table module of the dialog's texts.
inline constexpr char kDialogTextModule[] = "KivLUTSetting";

}  // namespace KIVMV

// Outside the library's namespace: hosts and style sheets address the window by its meta-object
// class name, "KivLUTSettingDlgI".
class KivLUTSettingDlgI : public QDialog {
  Q_OBJECT

 public:
  explicit KivLUTSettingDlgI(QWidget* parent = nullptr);
  ~KivLUTSettingDlgI() override;

  KivLUTSettingDlgI(const KivLUTSettingDlgI&) = delete;
  KivLUTSettingDlgI& operator=(const KivLUTSettingDlgI&) = delete;

  // The facade's operations (KivLUTSettingDlg). Only ShowDialog needs the window itself; the
  // others read or write the current colour map alone.
  long ShowDialog(KIVMV::KivImage& image);
  static long Execute(KIVMV::KivImage& src, KIVMV::KivImage* dst);
  static long SetParam(int mapType);
  static long GetParam(int* mapType);

  // The preview's image-window handle, 0 until ShowDialog created it.
  long long ImageWindowHandle() const { return imageWindow_; }

 public slots:
  void slot_refresh(int index);
  void slot_OK();
  void slot_CANCEL();

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  // The translation of `id`, or `defaultText` when the tables have none.
  QString LoadText(const char* id, const wchar_t* defaultText);
  // A parentless modal box titled "Info" with the text of `id`.
  void ShowWarning(const char* id, const wchar_t* defaultText);
  void FillTexts();

  KIVMV::KivLUTSettingForm ui_;
  long long imageWindow_ = 0;
  KIVMV::KivImage* source_ = nullptr;
  std::wstring textBuffer_;
  KIVMV::KivMultiLanguage language_;
  KIVMV::KivLUTSettingImpl colouring_;
};
