// The exported facade of the colour-map dialog: application set-up, and one fresh window per
// call.
#include <QApplication>
#include <QCoreApplication>
#include <QThread>
#include <cstdlib>
#include <new>

#include "KivLUTSettingDlg.h"
#include "common/stage_status.h"
#include "dialog/kiv_lut_setting_dlg_i.h"

namespace KIVMV {

struct KivLUTSettingDlgState {
  QApplication* application = nullptr;
  bool ownsApplication = false;
};

namespace {

// QApplication keeps a reference to its argument count, so the count outlives every application
// made here.
int applicationArgumentCount = 0;

bool HasEnvironmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && value[0] != '\0';
}

// Qt ends the process when no platform plugin can start. Without a chosen plugin and without an
// X11 or Wayland display there is none to start, so no application is made then, and the
// methods that need no window still work.
bool PlatformAvailable() {
  return HasEnvironmentValue("QT_QPA_PLATFORM") || HasEnvironmentValue("DISPLAY") ||
         HasEnvironmentValue("WAYLAND_DISPLAY");
}

// Widgets can be built: a QApplication exists and this is its thread.
bool GuiUsable() {
  const auto* application = qobject_cast<QApplication*>(QCoreApplication::instance());
  return application != nullptr && QThread::currentThread() == application->thread();
}

// One process-wide application for hosts that have none, destroyed when the process ends.
void EnsureProcessApplication() {
  if (QCoreApplication::instance() == nullptr && PlatformAvailable()) {
    static QApplication application(applicationArgumentCount, nullptr);
  }
}

// Runs `work` with a fresh, parentless window, or with none when widgets cannot be built, and
// turns a failure while the window is built or used into LUT_ERR_ARRAY_APPLY_FAILED, the code
// of a failed image colouring, which is all the window does.
template <typename Work>
long WithFreshWindow(Work&& work) noexcept {
  return RunStage(FaultStage::kDialogWindow, LUT_ERR_ARRAY_APPLY_FAILED, [&]() -> long {
    if (!GuiUsable()) return work(nullptr);
    KivLUTSettingDlgI window;
    return work(&window);
  });
}

}  // namespace

KivLUTSettingDlg::KivLUTSettingDlg() : state_(nullptr) {
  EnsureProcessApplication();
  state_ = new (std::nothrow) KivLUTSettingDlgState();
  if (state_ == nullptr) return;
  if (QCoreApplication::instance() == nullptr && PlatformAvailable()) {
    state_->application = new (std::nothrow) QApplication(applicationArgumentCount, nullptr);
    state_->ownsApplication = state_->application != nullptr;
  }
}

KivLUTSettingDlg::~KivLUTSettingDlg() {
  const bool owned = state_ != nullptr && state_->ownsApplication;
  if (owned) delete state_->application;
  delete state_;
  if (owned && QCoreApplication::instance() != nullptr) QCoreApplication::quit();
}

long KivLUTSettingDlg::ShowDialog(KivImage& image) {
  // Without a usable GUI there is no window to show.
  return WithFreshWindow([&](KivLUTSettingDlgI* window) {
    return window != nullptr ? window->ShowDialog(image) : LUT_ERR_ARRAY_APPLY_FAILED;
  });
}

long KivLUTSettingDlg::Execute(KivImage& src, KivImage* dst) {
  return WithFreshWindow([&](KivLUTSettingDlgI*) { return KivLUTSettingDlgI::Execute(src, dst); });
}

long KivLUTSettingDlg::SetParam(int mapType) {
  return WithFreshWindow([&](KivLUTSettingDlgI*) { return KivLUTSettingDlgI::SetParam(mapType); });
}

long KivLUTSettingDlg::GetParam(int* mapType) {
  return WithFreshWindow([&](KivLUTSettingDlgI*) { return KivLUTSettingDlgI::GetParam(mapType); });
}

}  // namespace KIVMV
