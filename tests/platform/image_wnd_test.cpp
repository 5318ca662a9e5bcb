#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QImage>
#include <QToolBar>
#include <QWidget>
#include <cstdint>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <random>
#include <thread>

#include "KivImageWnd.h"

namespace KIVMV {
namespace {

constexpr long kAllToolbarItems = kKivToolbarSave | kKivToolbarZoomIn | kKivToolbarZoomOut |
                                  kKivToolbarFit | kKivToolbarActualSize;

// A window whose picture area is exactly width x height: the toolbar hidden, no parent.
class Window {
 public:
  Window(int width, int height) {
    status_ = KivCreateImageWnd(0, 0, 0, width, height, &handle_);
    KivSetToolbarVisible(handle_, kAllToolbarItems, false);
    Settle();
  }
  ~Window() { KivDestoryImageWnd(handle_); }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  long long Handle() const { return handle_; }
  long Status() const { return status_; }
  QImage Grab() const {
    Settle();
    QImage picture;
    EXPECT_EQ(KivGrabImageWnd(handle_, &picture), kKivPlatformOk);
    return picture;
  }
  static void Settle() { QCoreApplication::processEvents(); }

 private:
  long long handle_ = 0;
  long status_ = -1;
};

// Random samples over the whole range of the type.
KivImage RandomImage(int width, int height, int channels, KivImageType type, unsigned seed) {
  KivImage image(width, height, channels, type);
  std::mt19937 random(seed);
  cv::Mat& pixels = image.Mat();
  for (int y = 0; y < height; ++y) {
    for (int i = 0; i < width * channels; ++i) {
      if (type == KIV_IMAGE_8U) {
        pixels.ptr<std::uint8_t>(y)[i] = static_cast<std::uint8_t>(random() & 0xFF);
      } else {
        pixels.ptr<std::uint16_t>(y)[i] = static_cast<std::uint16_t>(random() & 0xFFFF);
      }
    }
  }
  return image;
}

// The colour a screen pixel should have for image pixel (x, y): grey levels on all three, blue
// first in the image, 16-bit samples by their high byte.
QRgb ExpectedColour(const KivImage& image, int x, int y) {
  const cv::Mat& m = image.Mat();
  auto sample = [&](int c) {
    const int i = x * m.channels() + c;
    return m.depth() == CV_8U ? m.ptr<std::uint8_t>(y)[i] : m.ptr<std::uint16_t>(y)[i] >> 8;
  };
  if (m.channels() == 1) return qRgb(sample(0), sample(0), sample(0));
  return qRgb(sample(2), sample(1), sample(0));
}

QRgb BackgroundColour() {
  Window empty(8, 8);
  return empty.Grab().pixel(0, 0) & 0xFFFFFFu;
}

TEST(ImageWindow, CreatesTopLevelAndChildWindows) {
  long long handle = 0;
  ASSERT_EQ(KivCreateImageWnd(0, 5, 6, 70, 40, &handle), kKivPlatformOk);
  EXPECT_GT(handle, 0);
  QWidget* top = KivImageWndWidget(handle);
  ASSERT_NE(top, nullptr);
  EXPECT_TRUE(top->isWindow());
  EXPECT_EQ(top->size(), QSize(70, 40));
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivPlatformOk);

  QWidget host;
  host.resize(300, 200);
  const long hostId = static_cast<long>(host.winId());
  ASSERT_EQ(KivCreateImageWnd(hostId, 10, 20, 120, 90, &handle), kKivPlatformOk);
  QWidget* child = KivImageWndWidget(handle);
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->parentWidget(), &host);
  EXPECT_EQ(child->geometry(), QRect(10, 20, 120, 90));
  EXPECT_FALSE(child->isHidden());

  ASSERT_EQ(KivMoveWindow(handle, 1, 2, 30, 40), kKivPlatformOk);
  EXPECT_EQ(child->geometry(), QRect(1, 2, 30, 40));
  // Negative sizes count as nothing.
  ASSERT_EQ(KivMoveWindow(handle, 3, 4, -1, -7), kKivPlatformOk);
  EXPECT_EQ(child->geometry(), QRect(3, 4, 0, 0));
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivPlatformOk);
}

TEST(ImageWindow, RefusesUnknownParentsAndNullHandles) {
  long long handle = 77;
  // Offscreen has no foreign windows: an id that is no widget of ours has nowhere to go.
  EXPECT_EQ(KivCreateImageWnd(0x7FFFFFF0L, 0, 0, 10, 10, &handle), kKivImageWndParentNotFound);
  EXPECT_EQ(KivCreateImageWnd(-5, 0, 0, 10, 10, &handle), kKivImageWndParentNotFound);
  EXPECT_EQ(handle, 77);
  EXPECT_EQ(KivCreateImageWnd(0, 0, 0, 10, 10, nullptr), kKivPlatformNullArgument);
}

TEST(ImageWindow, HandlesOfDestroyedWindowsAreRefused) {
  long long handle = 0;
  ASSERT_EQ(KivCreateImageWnd(0, 0, 0, 10, 10, &handle), kKivPlatformOk);
  ASSERT_EQ(KivDestoryImageWnd(handle), kKivPlatformOk);
  KivImage image(2, 2, 1, KIV_IMAGE_8U);
  KivImage shown;
  QImage picture;
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivImageWndBadHandle);
  EXPECT_EQ(KivDisplayImage(handle, image), kKivImageWndBadHandle);
  EXPECT_EQ(KivMoveWindow(handle, 0, 0, 1, 1), kKivImageWndBadHandle);
  EXPECT_EQ(KivSetToolbarVisible(handle, 1, true), kKivImageWndBadHandle);
  EXPECT_EQ(KivRefresh(handle), kKivImageWndBadHandle);
  EXPECT_EQ(KivGetDisplayedImage(handle, &shown), kKivImageWndBadHandle);
  EXPECT_EQ(KivGrabImageWnd(handle, &picture), kKivImageWndBadHandle);
  EXPECT_EQ(KivImageWndWidget(handle), nullptr);
  EXPECT_EQ(KivRefresh(0), kKivImageWndBadHandle);

  // A new window never gets an old handle.
  long long next = 0;
  ASSERT_EQ(KivCreateImageWnd(0, 0, 0, 10, 10, &next), kKivPlatformOk);
  EXPECT_NE(next, handle);
  EXPECT_EQ(KivDestoryImageWnd(next), kKivPlatformOk);
}

TEST(ImageWindow, WindowGoneWithItsParentReleasesItsHandle) {
  long long handle = 0;
  {
    QWidget host;
    ASSERT_EQ(KivCreateImageWnd(static_cast<long>(host.winId()), 0, 0, 10, 10, &handle),
              kKivPlatformOk);
    ASSERT_NE(KivImageWndWidget(handle), nullptr);
  }
  EXPECT_EQ(KivImageWndWidget(handle), nullptr);
  EXPECT_EQ(KivRefresh(handle), kKivImageWndBadHandle);
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivPlatformOk);
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivImageWndBadHandle);
}

TEST(ImageWindow, OtherThreadsAreRefused) {
  long long handle = 0;
  ASSERT_EQ(KivCreateImageWnd(0, 0, 0, 10, 10, &handle), kKivPlatformOk);
  long created = -1;
  long refreshed = -1;
  QWidget* widget = reinterpret_cast<QWidget*>(1);
  std::thread worker([&] {
    long long other = 0;
    created = KivCreateImageWnd(0, 0, 0, 10, 10, &other);
    refreshed = KivRefresh(handle);
    widget = KivImageWndWidget(handle);
  });
  worker.join();
  EXPECT_EQ(created, kKivImageWndNoApplication);
  EXPECT_EQ(refreshed, kKivImageWndNoApplication);
  EXPECT_EQ(widget, nullptr);
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivPlatformOk);
}

TEST(ImageWindow, ShowsEveryPixelOneToOne) {
  struct Case {
    int width, height, channels;
    KivImageType type;
  } cases[] = {{1, 1, 1, KIV_IMAGE_8U},  {37, 23, 1, KIV_IMAGE_8U},  {37, 23, 3, KIV_IMAGE_8U},
               {1, 1, 3, KIV_IMAGE_8U},  {29, 31, 1, KIV_IMAGE_16U}, {29, 31, 3, KIV_IMAGE_16U},
               {64, 48, 3, KIV_IMAGE_8U}};
  unsigned seed = 1;
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message()
                 << c.width << "x" << c.height << " channels " << c.channels << " type " << c.type);
    KivImage image = RandomImage(c.width, c.height, c.channels, c.type, seed++);
    Window window(c.width, c.height);
    ASSERT_EQ(KivDisplayImage(window.Handle(), image), kKivPlatformOk);
    ASSERT_EQ(KivRefresh(window.Handle()), kKivPlatformOk);
    const QImage picture = window.Grab();
    ASSERT_EQ(picture.size(), QSize(c.width, c.height));
    for (int y = 0; y < c.height; ++y) {
      for (int x = 0; x < c.width; ++x) {
        ASSERT_EQ(picture.pixel(x, y) & 0xFFFFFFu, ExpectedColour(image, x, y) & 0xFFFFFFu)
            << x << "," << y;
      }
    }
  }
}

TEST(ImageWindow, EnlargesByWholeFactorsPixelForPixel) {
  KivImage image = RandomImage(25, 15, 3, KIV_IMAGE_8U, 42);
  Window window(75, 45);
  ASSERT_EQ(KivDisplayImage(window.Handle(), image), kKivPlatformOk);
  const QImage picture = window.Grab();
  ASSERT_EQ(picture.size(), QSize(75, 45));
  for (int y = 0; y < 45; ++y) {
    for (int x = 0; x < 75; ++x) {
      ASSERT_EQ(picture.pixel(x, y) & 0xFFFFFFu, ExpectedColour(image, x / 3, y / 3) & 0xFFFFFFu)
          << x << "," << y;
    }
  }
}

// The rectangle of pixels that differ from the background.
QRect PaintedRect(const QImage& picture, QRgb background) {
  QRect painted;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      if ((picture.pixel(x, y) & 0xFFFFFFu) != background) painted |= QRect(x, y, 1, 1);
    }
  }
  return painted;
}

// A uniform image whose colour is not the background's.
KivImage UniformImage(int width, int height) {
  KivImage image(width, height, 1, KIV_IMAGE_8U);
  image.Mat().setTo(200);
  return image;
}

TEST(ImageWindow, FitsKeepingTheAspectRatio) {
  const QRgb background = BackgroundColour();
  ASSERT_NE(background, qRgb(200, 200, 200) & 0xFFFFFFu);
  struct Case {
    int imageWidth, imageHeight, windowWidth, windowHeight;
    QRect painted;
  } cases[] = {
      {40, 20, 100, 100, QRect(0, 25, 100, 50)},  // wide image: bands above and below
      {20, 40, 100, 100, QRect(25, 0, 50, 100)},  // tall image: bands left and right
      {10, 10, 60, 30, QRect(15, 0, 30, 30)},     // small image enlarged
      {300, 100, 90, 90, QRect(0, 30, 90, 30)},   // large image shrunk
      {3, 1, 10, 10, QRect(0, 3, 10, 3)},         // 3.33 rounds to 3, centred from 3
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.imageWidth << "x" << c.imageHeight << " in "
                                      << c.windowWidth << "x" << c.windowHeight);
    KivImage image = UniformImage(c.imageWidth, c.imageHeight);
    Window window(c.windowWidth, c.windowHeight);
    ASSERT_EQ(KivDisplayImage(window.Handle(), image), kKivPlatformOk);
    EXPECT_EQ(PaintedRect(window.Grab(), background), c.painted);
  }
}

TEST(ImageWindow, ToolbarZoomsAndFits) {
  const QRgb background = BackgroundColour();
  KivImage image = UniformImage(10, 10);
  Window window(100, 100);
  ASSERT_EQ(KivDisplayImage(window.Handle(), image), kKivPlatformOk);
  QWidget* widget = KivImageWndWidget(window.Handle());
  ASSERT_NE(widget, nullptr);
  auto trigger = [&](const char* name) {
    QAction* action = widget->findChild<QAction*>(name);
    ASSERT_NE(action, nullptr) << name;
    action->trigger();
  };
  EXPECT_EQ(PaintedRect(window.Grab(), background), QRect(0, 0, 100, 100));
  trigger("KivImageWndActualSize");
  EXPECT_EQ(PaintedRect(window.Grab(), background), QRect(45, 45, 10, 10));
  trigger("KivImageWndZoomIn");  // 12.5 rounds to 13
  EXPECT_EQ(PaintedRect(window.Grab(), background), QRect(43, 43, 13, 13));
  trigger("KivImageWndZoomOut");  // back to 10
  EXPECT_EQ(PaintedRect(window.Grab(), background), QRect(45, 45, 10, 10));
  trigger("KivImageWndFit");
  EXPECT_EQ(PaintedRect(window.Grab(), background), QRect(0, 0, 100, 100));
  trigger("KivImageWndZoomOut");  // from the fitted scale 10: 8 times
  EXPECT_EQ(PaintedRect(window.Grab(), background), QRect(10, 10, 80, 80));
}

TEST(ImageWindow, ToolbarItemsFollowTheirBits) {
  long long handle = 0;
  ASSERT_EQ(KivCreateImageWnd(0, 0, 0, 200, 100, &handle), kKivPlatformOk);
  QWidget* widget = KivImageWndWidget(handle);
  ASSERT_NE(widget, nullptr);
  QToolBar* toolbar = widget->findChild<QToolBar*>("KivImageWndToolbar");
  ASSERT_NE(toolbar, nullptr);
  const std::pair<long, const char*> items[] = {{kKivToolbarSave, "KivImageWndSave"},
                                                {kKivToolbarZoomIn, "KivImageWndZoomIn"},
                                                {kKivToolbarZoomOut, "KivImageWndZoomOut"},
                                                {kKivToolbarFit, "KivImageWndFit"},
                                                {kKivToolbarActualSize, "KivImageWndActualSize"}};
  auto visible = [&](const char* name) {
    QAction* action = widget->findChild<QAction*>(name);
    return action != nullptr && action->isVisible();
  };
  for (const auto& item : items) EXPECT_TRUE(visible(item.second)) << item.second;
  EXPECT_FALSE(toolbar->isHidden());

  // What the colour-map dialog asks for: saving hidden, the four view items shown.
  ASSERT_EQ(KivSetToolbarVisible(handle, 1, false), kKivPlatformOk);
  ASSERT_EQ(KivSetToolbarVisible(handle, 0x78000000, true), kKivPlatformOk);
  EXPECT_FALSE(visible("KivImageWndSave"));
  for (const auto& item : items) {
    if (item.first != kKivToolbarSave) {
      EXPECT_TRUE(visible(item.second)) << item.second;
    }
  }
  EXPECT_FALSE(toolbar->isHidden());

  // Bits without an item change nothing; with every item hidden the strip goes too.
  ASSERT_EQ(KivSetToolbarVisible(handle, 0x00F00006, false), kKivPlatformOk);
  EXPECT_TRUE(visible("KivImageWndZoomIn"));
  ASSERT_EQ(KivSetToolbarVisible(handle, 0x78000000, false), kKivPlatformOk);
  EXPECT_TRUE(toolbar->isHidden());
  ASSERT_EQ(KivSetToolbarVisible(handle, kKivToolbarFit, true), kKivPlatformOk);
  EXPECT_FALSE(toolbar->isHidden());
  EXPECT_TRUE(visible("KivImageWndFit"));
  EXPECT_FALSE(visible("KivImageWndZoomIn"));
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivPlatformOk);
}

TEST(ImageWindow, KeepsItsOwnCopyOfTheImage) {
  KivImage image = RandomImage(9, 7, 1, KIV_IMAGE_16U, 3);
  const KivImage before = image.DeepCopy();
  Window window(9, 7);
  ASSERT_EQ(KivDisplayImage(window.Handle(), image), kKivPlatformOk);
  image.Mat().setTo(0);
  KivImage shown;
  ASSERT_EQ(KivGetDisplayedImage(window.Handle(), &shown), kKivPlatformOk);
  ASSERT_EQ(shown.Mat().type(), before.Mat().type());
  ASSERT_EQ(shown.Mat().size(), before.Mat().size());
  EXPECT_EQ(cv::norm(shown.Mat(), before.Mat(), cv::NORM_INF), 0.0);
  const QImage picture = window.Grab();
  EXPECT_EQ(picture.pixel(4, 3) & 0xFFFFFFu, ExpectedColour(before, 4, 3) & 0xFFFFFFu);
}

TEST(ImageWindow, EmptyImageClearsTheWindow) {
  const QRgb background = BackgroundColour();
  Window window(20, 20);
  KivImage image = UniformImage(20, 20);
  ASSERT_EQ(KivDisplayImage(window.Handle(), image), kKivPlatformOk);
  ASSERT_EQ(PaintedRect(window.Grab(), background), QRect(0, 0, 20, 20));
  KivImage empty;
  ASSERT_EQ(KivDisplayImage(window.Handle(), empty), kKivPlatformOk);
  EXPECT_TRUE(PaintedRect(window.Grab(), background).isEmpty());
  KivImage shown = UniformImage(3, 3);
  ASSERT_EQ(KivGetDisplayedImage(window.Handle(), &shown), kKivPlatformOk);
  EXPECT_TRUE(shown.Mat().empty());
}

TEST(ImageWindow, RefusesImagesItCannotShow) {
  Window window(10, 10);
  KivImage first = RandomImage(10, 10, 1, KIV_IMAGE_8U, 9);
  ASSERT_EQ(KivDisplayImage(window.Handle(), first), kKivPlatformOk);
  const QImage before = window.Grab();
  KivImage floats(10, 10, 1, KIV_IMAGE_32F);
  KivImage twoChannels(10, 10, 2, KIV_IMAGE_8U);
  KivImage fourChannels(10, 10, 4, KIV_IMAGE_8U);
  KivImage signedSixteen(10, 10, 1, KIV_IMAGE_16S);
  for (KivImage* image : {&floats, &twoChannels, &fourChannels, &signedSixteen}) {
    EXPECT_EQ(KivDisplayImage(window.Handle(), *image), kKivImageWndUnsupportedImage);
  }
  EXPECT_EQ(window.Grab(), before);
  KivImage shown;
  ASSERT_EQ(KivGetDisplayedImage(window.Handle(), &shown), kKivPlatformOk);
  EXPECT_EQ(cv::norm(shown.Mat(), first.Mat(), cv::NORM_INF), 0.0);
  EXPECT_EQ(KivGetDisplayedImage(window.Handle(), nullptr), kKivPlatformNullArgument);
  EXPECT_EQ(KivGrabImageWnd(window.Handle(), nullptr), kKivPlatformNullArgument);
}

}  // namespace
}  // namespace KIVMV

// The tests need a QApplication; listing them (test discovery at build time, where no display
// and no platform choice exist) must not make one.
int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  QApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
