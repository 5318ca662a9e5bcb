// Shows the colour-map dialog on a generated 16-bit grey scene in a real display (an X server such
// as Xvfb), checks that the preview shows the SetColorLUT result for every map and that the
// screen shows what the preview paints, then saves a screenshot of the window as dialog.png in
// the given folder and presses OK.
//
//   kivlut_dialog_screenshot <output folder> [map 0..6, default 1]
//
// Exit status 0 when every check passed and the picture was written.
#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QImage>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWindow>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <opencv2/imgproc.hpp>
#include <string>

#include "KivImageWnd.h"
#include "KivLUTSetting.h"
#include "KivLUTSettingDlg.h"
#include "dialog/kiv_lut_setting_dlg_i.h"

namespace {

using namespace KIVMV;

// A height-map-like grey scene: a tilted floor, a dome, a raised block, a ring, a sloping wedge
// and a hole where nothing was measured (0).
KivImage GeneratedScene() {
  const int width = 640;
  const int height = 400;
  KivImage image(width, height, 1, KIV_IMAGE_16U);
  cv::Mat& pixels = image.Mat();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      pixels.at<uint16_t>(y, x) = static_cast<uint16_t>(9000 + 22 * x + 15 * y);
    }
  }
  const cv::Point dome(190, 200);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double d2 = (x - dome.x) * (x - dome.x) + (y - dome.y) * (y - dome.y);
      if (d2 < 120.0 * 120.0) {
        pixels.at<uint16_t>(y, x) = static_cast<uint16_t>(30000 + 28000 * (1.0 - d2 / 14400.0));
      }
    }
  }
  cv::rectangle(pixels, cv::Rect(380, 60, 170, 110), cv::Scalar(52000), cv::FILLED);
  cv::circle(pixels, cv::Point(470, 290), 70, cv::Scalar(42000), 18);
  const cv::Point wedge[] = {{330, 360}, {430, 230}, {520, 380}};
  cv::fillConvexPoly(pixels, wedge, 3, cv::Scalar(24000));
  cv::ellipse(pixels, cv::Point(90, 340), cv::Size(45, 28), 20.0, 0.0, 360.0, cv::Scalar(0),
              cv::FILLED);
  return image;
}

void Wait(int milliseconds) {
  QEventLoop loop;
  QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
  loop.exec();
}

bool SameBytes(const KivImage& a, const KivImage& b) {
  const cv::Mat& x = a.Mat();
  const cv::Mat& y = b.Mat();
  if (x.type() != y.type() || x.size() != y.size()) return false;
  return x.empty() || cv::norm(x, y, cv::NORM_INF) == 0.0;
}

struct Run {
  KivImage source;
  int map = 1;
  std::filesystem::path output;
  int failures = 0;
  bool saved = false;

  void Fail(const std::string& what) {
    std::fprintf(stderr, "FAIL: %s\n", what.c_str());
    ++failures;
  }

  // Runs inside the dialog's modal loop.
  void Drive(KivLUTSettingDlgI* window) {
    const long long handle = window->ImageWindowHandle();
    auto* combo = window->findChild<QComboBox*>("comboBox");
    if (handle == 0 || combo == nullptr) return Fail("no preview window or combo box");
    KivLUTSetting lut;
    for (int index = 0; index < combo->count(); ++index) {
      combo->setCurrentIndex(index);
      KivImage expected;
      KivImage shown;
      lut.SetColorLUT(source, &expected, index);
      KivGetDisplayedImage(handle, &shown);
      if (!SameBytes(shown, expected))
        Fail("preview differs from SetColorLUT for map " + std::to_string(index));
    }
    combo->setCurrentIndex(map);
    Wait(400);

    // What the X server shows is what the preview paints.
    QImage painted;
    KivGrabImageWnd(handle, &painted);
    QWidget* canvas = KivImageWndWidget(handle)->findChild<QWidget*>("KivImageWndCanvas");
    QScreen* screen = window->windowHandle()->screen();
    const QImage onScreen =
        screen->grabWindow(window->winId()).toImage().convertToFormat(QImage::Format_RGB32);
    if (onScreen.size() != window->size()) {
      Fail("screenshot size differs from the window's");
    } else if (canvas != nullptr) {
      const QPoint origin = canvas->mapTo(window, QPoint(0, 0));
      const QImage part = onScreen.copy(QRect(origin, painted.size()));
      if (part != painted) Fail("the screen does not show what the preview paints");
    }
    std::filesystem::create_directories(output);
    const std::filesystem::path file = output / "dialog.png";
    saved = onScreen.save(QString::fromStdString(file.string()), "PNG");
    if (!saved) Fail("cannot write " + file.string());
    std::printf("screenshot: %s (%dx%d, platform %s)\n", file.string().c_str(), onScreen.width(),
                onScreen.height(), QGuiApplication::platformName().toStdString().c_str());
    window->findChild<QPushButton*>("OK_BOTTON")->click();
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s <output folder> [map 0..6]\n", argv[0]);
    return 2;
  }
  Run run;
  run.output = argv[1];
  run.map = argc == 3 ? std::atoi(argv[2]) : 1;
  if (run.map < 0 || run.map > 6) {
    std::fprintf(stderr, "map must be 0 to 6\n");
    return 2;
  }
  run.source = GeneratedScene();

  KivLUTSettingDlg facade;
  if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
    std::fprintf(stderr, "no display: set DISPLAY (for example under xvfb-run)\n");
    return 1;
  }
  facade.SetParam(0);

  // Waits for the window to be on screen, then drives it; gives up after 30 s.
  QElapsedTimer clock;
  clock.start();
  QTimer poll;
  QObject::connect(&poll, &QTimer::timeout, [&] {
    auto* window = qobject_cast<KivLUTSettingDlgI*>(QApplication::activeModalWidget());
    if (window != nullptr && window->windowHandle() != nullptr &&
        window->windowHandle()->isExposed()) {
      poll.stop();
      Wait(200);
      run.Drive(window);
    } else if (clock.elapsed() > 30000) {
      poll.stop();
      run.Fail("the dialog never appeared on screen");
      if (window != nullptr) window->reject();
    }
  });
  poll.start(20);
  if (facade.ShowDialog(run.source) != LUT_OK) run.Fail("ShowDialog did not return LUT_OK");
  int stored = -1;
  facade.GetParam(&stored);
  if (stored != run.map) run.Fail("OK did not store the chosen map");
  if (!run.saved) run.Fail("no screenshot");
  return run.failures == 0 ? 0 : 1;
}
