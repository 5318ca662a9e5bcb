// The window: its form, placement, texts, slots and the live preview.
#include "dialog/kiv_lut_setting_dlg_i.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QComboBox>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMetaMethod>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QSpacerItem>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "KivLUTSetting.h"
#include "dialog/dialog_test_support.h"
#include "image/image_test_support.h"
#include "support/scoped_environment.h"

namespace KIVMV {
namespace {

using testing_support::DialogTest;
using testing_support::DisplayedImage;
using testing_support::ModalDriver;
using testing_support::SameImage;
using testing_support::ScopedEnvironment;

constexpr int kNoLimit = 16777215;

template <typename T>
T* Find(QWidget& window, const char* name) {
  T* found = window.findChild<T*>(name);
  EXPECT_NE(found, nullptr) << name;
  return found;
}

void ExpectSizes(QWidget* widget, QSize minimum, QSize maximum) {
  ASSERT_NE(widget, nullptr);
  EXPECT_EQ(widget->minimumSize(), minimum) << widget->objectName().toStdString();
  EXPECT_EQ(widget->maximumSize(), maximum) << widget->objectName().toStdString();
}

void ExpectPolicy(QWidget* widget, QSizePolicy::Policy horizontal, QSizePolicy::Policy vertical) {
  ASSERT_NE(widget, nullptr);
  EXPECT_EQ(widget->sizePolicy().horizontalPolicy(), horizontal)
      << widget->objectName().toStdString();
  EXPECT_EQ(widget->sizePolicy().verticalPolicy(), vertical) << widget->objectName().toStdString();
}

void ExpectSpacer(QLayoutItem* item, QSize size, QSizePolicy::Policy horizontal,
                  QSizePolicy::Policy vertical) {
  ASSERT_NE(item, nullptr);
  QSpacerItem* spacer = item->spacerItem();
  ASSERT_NE(spacer, nullptr);
  EXPECT_EQ(spacer->sizeHint(), size);
  EXPECT_EQ(spacer->sizePolicy().horizontalPolicy(), horizontal);
  EXPECT_EQ(spacer->sizePolicy().verticalPolicy(), vertical);
}

// The margins a layout of this kind, nested like this one, has when nothing is set.
QMargins DefaultNestedMargins() {
  QWidget host;
  auto* outer = new QGridLayout(&host);
  auto* inner = new QHBoxLayout();
  outer->addLayout(inner, 0, 0);
  return inner->contentsMargins();
}

TEST_F(DialogTest, FormHasTheNamedWidgetsAndLayouts) {
  KivLUTSettingDlgI window;
  EXPECT_EQ(window.objectName().toStdString(), "Dialog");
  EXPECT_EQ(window.minimumSize(), QSize(450, 0));
  EXPECT_EQ(window.maximumSize(), QSize(kNoLimit, kNoLimit));

  auto* grid = Find<QGridLayout>(window, "gridLayout");
  auto* row = Find<QHBoxLayout>(window, "horizontalLayout_3");
  auto* image = Find<QWidget>(window, "ImageWndWidget");
  auto* column = Find<QVBoxLayout>(window, "verticalLayout");
  auto* scroll = Find<QScrollArea>(window, "scrollArea");
  auto* contents = Find<QWidget>(window, "scrollAreaWidgetContents");
  auto* combo = Find<QComboBox>(window, "comboBox");
  auto* label = Find<QLabel>(window, "CodeType_Label");
  auto* buttonRow = Find<QHBoxLayout>(window, "horizontalLayout_2");
  auto* buttons = Find<QHBoxLayout>(window, "horizontalLayout");
  auto* ok = Find<QPushButton>(window, "OK_BOTTON");
  auto* cancel = Find<QPushButton>(window, "CANCEL_BOTTON");
  ASSERT_TRUE(grid && row && image && column && scroll && contents && combo && label && buttonRow &&
              buttons && ok && cancel);

  // gridLayout: the window's layout, no spacing, no margins, horizontalLayout_3 in its one cell.
  EXPECT_EQ(window.layout(), grid);
  EXPECT_EQ(grid->spacing(), 0);
  EXPECT_EQ(grid->contentsMargins(), QMargins(0, 0, 0, 0));
  ASSERT_EQ(grid->count(), 1);
  EXPECT_EQ(grid->itemAtPosition(0, 0)->layout(), row);

  // horizontalLayout_3: preview, 10 x 20 spacer, side column; the preview takes the stretch.
  const QMargins defaults = DefaultNestedMargins();
  EXPECT_EQ(row->spacing(), 5);
  EXPECT_EQ(row->contentsMargins(),
            QMargins(1, defaults.top(), defaults.right(), defaults.bottom()));
  ASSERT_EQ(row->count(), 3);
  EXPECT_EQ(row->itemAt(0)->widget(), image);
  ExpectSpacer(row->itemAt(1), QSize(10, 20), QSizePolicy::Fixed, QSizePolicy::Minimum);
  EXPECT_EQ(row->itemAt(2)->layout(), column);
  EXPECT_EQ(row->stretch(0), 1);
  EXPECT_EQ(row->stretch(1), 0);
  EXPECT_EQ(row->stretch(2), 0);

  EXPECT_EQ(image->parentWidget(), &window);
  ExpectPolicy(image, QSizePolicy::Preferred, QSizePolicy::Preferred);
  ExpectSizes(image, QSize(80, 80), QSize(kNoLimit, kNoLimit));

  // verticalLayout: scroll area, 20 x 50 spacer, button row.
  EXPECT_EQ(column->contentsMargins(), QMargins(defaults.left(), 30, defaults.right(), 2));
  ASSERT_EQ(column->count(), 3);
  EXPECT_EQ(column->itemAt(0)->widget(), scroll);
  ExpectSpacer(column->itemAt(1), QSize(20, 50), QSizePolicy::Minimum, QSizePolicy::Fixed);
  EXPECT_EQ(column->itemAt(2)->layout(), buttonRow);

  EXPECT_EQ(scroll->parentWidget(), &window);
  ExpectSizes(scroll, QSize(350, 0), QSize(350, kNoLimit));
  EXPECT_EQ(scroll->frameShape(), QFrame::NoFrame);
  EXPECT_TRUE(scroll->widgetResizable());
  EXPECT_EQ(scroll->widget(), contents);

  EXPECT_EQ(combo->parentWidget(), contents);
  EXPECT_EQ(combo->geometry(), QRect(149, 0, 171, 25));
  ExpectPolicy(combo, QSizePolicy::Fixed, QSizePolicy::Fixed);
  ExpectSizes(combo, QSize(171, 25), QSize(171, 25));
  EXPECT_EQ(label->parentWidget(), contents);
  EXPECT_EQ(label->geometry(), QRect(0, 0, 150, 25));
  ExpectPolicy(label, QSizePolicy::Fixed, QSizePolicy::Preferred);
  ExpectSizes(label, QSize(150, 25), QSize(150, 25));

  // horizontalLayout_2: 40 x 20 expanding spacer, then the buttons.
  ASSERT_EQ(buttonRow->count(), 2);
  ExpectSpacer(buttonRow->itemAt(0), QSize(40, 20), QSizePolicy::Expanding, QSizePolicy::Minimum);
  EXPECT_EQ(buttonRow->itemAt(1)->layout(), buttons);

  EXPECT_EQ(buttons->spacing(), 5);
  EXPECT_EQ(buttons->contentsMargins(), QMargins(defaults.left(), defaults.top(), 30, 2));
  ASSERT_EQ(buttons->count(), 2);
  EXPECT_EQ(buttons->itemAt(0)->widget(), ok);
  EXPECT_EQ(buttons->itemAt(1)->widget(), cancel);
  for (QPushButton* button : {ok, cancel}) {
    EXPECT_EQ(button->parentWidget(), &window);
    ExpectSizes(button, QSize(75, 30), QSize(75, 30));
  }
}

// x * share, truncated, restated here without the library's helpers.
int Truncated(int length, double share) { return static_cast<int>(std::trunc(length * share)); }

TEST_F(DialogTest, WindowIsSizedAndPlacedFromTheScreen) {
  const QRect screen = QGuiApplication::primaryScreen()->geometry();
  KivLUTSettingDlgI window;
  const int width = std::max(450, Truncated(screen.width(), 0.65));
  const int height = Truncated(screen.height(), 0.7);
  EXPECT_EQ(window.size(), QSize(width, height));
  EXPECT_EQ(window.pos(), QPoint(Truncated(screen.width() - width, 0.5),
                                 Truncated(screen.height() - height, 0.25)));
  EXPECT_TRUE(window.windowFlags().testFlag(Qt::WindowMinimizeButtonHint));
  EXPECT_EQ(window.windowType(), Qt::Dialog);
}

TEST_F(DialogTest, MetaObjectHasTheThreeSlots) {
  KivLUTSettingDlgI window;
  const QMetaObject* meta = window.metaObject();
  EXPECT_STREQ(meta->className(), "KivLUTSettingDlgI");
  EXPECT_EQ(meta->superClass(), &QDialog::staticMetaObject);
  ASSERT_EQ(meta->methodCount() - meta->methodOffset(), 3);
  const char* expectedSlots[] = {"slot_refresh(int)", "slot_OK()", "slot_CANCEL()"};
  for (int i = 0; i < 3; ++i) {
    const QMetaMethod method = meta->method(meta->methodOffset() + i);
    EXPECT_EQ(method.methodSignature().toStdString(), expectedSlots[i]);
    EXPECT_EQ(method.methodType(), QMetaMethod::Slot);
  }
  EXPECT_NE(window.qt_metacast("KivLUTSettingDlgI"), nullptr);
}

TEST_F(DialogTest, BuiltInTextsBeforeShowing) {
  KivLUTSettingDlgI window;
  EXPECT_EQ(window.windowTitle().toStdString(), "KivLUTSettingDlg");
  EXPECT_EQ(Find<QLabel>(window, "CodeType_Label")->text().toStdString(), "CodeType");
  EXPECT_EQ(Find<QPushButton>(window, "OK_BOTTON")->text().toStdString(), "OK");
  EXPECT_EQ(Find<QPushButton>(window, "CANCEL_BOTTON")->text().toStdString(), "CANCEL");
  EXPECT_EQ(Find<QComboBox>(window, "comboBox")->count(), 0);
}

struct ShownTexts {
  std::vector<std::string> items;
  std::string title, label, ok, cancel;
};

// The texts of the window while ShowDialog runs it.
ShownTexts TextsWhileShown() {
  KivImage image(16, 8, 1, KIV_IMAGE_8U);
  image.Mat().setTo(9);
  ShownTexts texts;
  ModalDriver driver;
  driver.Then([&](QWidget* window) {
    auto* combo = window->findChild<QComboBox*>("comboBox");
    for (int i = 0; i < combo->count(); ++i)
      texts.items.push_back(combo->itemText(i).toStdString());
    texts.title = window->windowTitle().toStdString();
    texts.label = window->findChild<QLabel*>("CodeType_Label")->text().toStdString();
    texts.ok = window->findChild<QPushButton*>("OK_BOTTON")->text().toStdString();
    texts.cancel = window->findChild<QPushButton*>("CANCEL_BOTTON")->text().toStdString();
    window->findChild<QPushButton*>("CANCEL_BOTTON")->click();
  });
  KivLUTSettingDlgI window;
  EXPECT_EQ(window.ShowDialog(image), LUT_OK);
  return texts;
}

TEST_F(DialogTest, EnglishTextsFromTheShippedTables) {
  ScopedEnvironment language("KIV_LANG", "en");
  const ShownTexts texts = TextsWhileShown();
  EXPECT_EQ(texts.items,
            (std::vector<std::string>{"Grey Level", "Rainbow", "Hot Metal Code", "Diverging Map",
                                      "Isoluminant Map", "RGB Map", "Jet Map"}));
  EXPECT_EQ(texts.title, "KivLUTSetting");
  EXPECT_EQ(texts.label, "Code Type");
  EXPECT_EQ(texts.ok, "OK");
  EXPECT_EQ(texts.cancel, "CANCEL");
}

TEST_F(DialogTest, ChineseTextsFromTheShippedTables) {
  ScopedEnvironment language("KIV_LANG", "zh_CN");
  const ShownTexts texts = TextsWhileShown();
  // "Jet Map" is never looked up.
  EXPECT_EQ(texts.items, (std::vector<std::string>{
                             "\xE7\x81\xB0\xE5\xBA\xA6",                          // 灰度
                             "\xE5\xBD\xA9\xE8\x99\xB9",                          // 彩虹
                             "\xE7\x83\xAD\xE9\x87\x91\xE5\xB1\x9E",              // 热金属
                             "\xE5\x8F\x91\xE6\x95\xA3\xE8\x89\xB2\xE5\x9B\xBE",  // 发散色图
                             "\xE7\xAD\x89\xE4\xBA\xAE\xE5\xBA\xA6\xE8\x89\xB2\xE5\x9B\xBE",
                             "RGB \xE8\x89\xB2\xE5\x9B\xBE",  // RGB 色图
                             "Jet Map"}));
  EXPECT_EQ(texts.title,
            "\xE9\xA2\x9C\xE8\x89\xB2\xE6\x98\xA0\xE5\xB0\x84\xE8\xAE\xBE\xE7\xBD\xAE");
  EXPECT_EQ(texts.label, "\xE7\xBC\x96\xE7\xA0\x81\xE7\xB1\xBB\xE5\x9E\x8B");  // 编码类型
  EXPECT_EQ(texts.ok, "\xE7\xA1\xAE\xE5\xAE\x9A");                             // 确定
  EXPECT_EQ(texts.cancel, "\xE5\x8F\x96\xE6\xB6\x88");                         // 取消
}

TEST_F(DialogTest, DefaultTextsWhereTheTablesSayNothing) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("kivdlg-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder / "en");
  std::ofstream(folder / "en" / "KivLUTSetting.lang") << "IDS_RAINBOW=Custom rainbow\n"
                                                         "IDS_JET_MAP=never used\n";
  ScopedEnvironment directory("KIV_LANG_DIR", folder.c_str());
  ScopedEnvironment language("KIV_LANG", "en");
  const ShownTexts texts = TextsWhileShown();
  std::filesystem::remove_all(folder);
  EXPECT_EQ(texts.items,
            (std::vector<std::string>{"Grey Level", "Custom rainbow", "Hot Metal Code",
                                      "Diverging Map", "Isoluminant Map", "RGB Map", "Jet Map"}));
  EXPECT_EQ(texts.title, "KivLUTSetting");
  EXPECT_EQ(texts.label, "Code Type");
  EXPECT_EQ(texts.ok, "OK");
  EXPECT_EQ(texts.cancel, "CANCEL");
}

// Every colour the preview paints (background aside) is a colour of the image it shows.
void ExpectPaintedColoursComeFrom(long long handle, const KivImage& shown) {
  QImage picture;
  ASSERT_EQ(KivGrabImageWnd(handle, &picture), kKivPlatformOk);
  ASSERT_FALSE(picture.isNull());
  std::set<QRgb> colours;
  const cv::Mat& m = shown.Mat();
  for (int y = 0; y < m.rows; ++y) {
    for (int x = 0; x < m.cols; ++x) {
      const uint8_t* p = m.ptr<uint8_t>(y) + x * m.channels();
      colours.insert(m.channels() == 1 ? qRgb(p[0], p[0], p[0]) : qRgb(p[2], p[1], p[0]));
    }
  }
  const QRgb background = picture.pixel(0, 0) & 0xFFFFFFu;
  int painted = 0;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      const QRgb colour = picture.pixel(x, y) | 0xFF000000u;
      if ((colour & 0xFFFFFFu) == background) continue;
      ++painted;
      ASSERT_TRUE(colours.count(colour)) << "pixel " << x << "," << y;
    }
  }
  EXPECT_GT(painted, 0);
}

void CheckPreviewForEveryIndex(KivImage& source) {
  KivLUTSetting lut;
  ModalDriver driver;
  driver.Then([&](QWidget* widget) {
    auto* window = qobject_cast<KivLUTSettingDlgI*>(widget);
    ASSERT_NE(window, nullptr);
    const long long handle = window->ImageWindowHandle();
    ASSERT_NE(handle, 0);
    auto* combo = window->findChild<QComboBox*>("comboBox");
    // Forwards, then backwards, so that each index is reached from another one.
    const int order[] = {0, 1, 2, 3, 4, 5, 6, 5, 4, 3, 2, 1, 0};
    for (int index : order) {
      combo->setCurrentIndex(index);
      QCoreApplication::processEvents();
      KivImage expected;
      ASSERT_EQ(lut.SetColorLUT(source, &expected, index), LUT_OK);
      const KivImage shown = DisplayedImage(handle);
      EXPECT_TRUE(SameImage(shown, expected)) << "index " << index;
      ExpectPaintedColoursComeFrom(handle, shown);
    }
    window->findChild<QPushButton*>("CANCEL_BOTTON")->click();
  });
  KivLUTSettingDlgI window;
  EXPECT_EQ(window.ShowDialog(source), LUT_OK);
}

TEST_F(DialogTest, PreviewEqualsSetColorLUTForEachIndex) {
  std::mt19937_64 random(77);
  for (const auto& [width, height] : testing_support::GreyImageSizes()) {
    auto eight = testing_support::RandomGreyImage<uint8_t>(width, height, 0, random);
    auto sixteen = testing_support::RandomGreyImage<uint16_t>(width, height, 2, random);
    SCOPED_TRACE(::testing::Message() << width << "x" << height);
    CheckPreviewForEveryIndex(eight->image);
    CheckPreviewForEveryIndex(sixteen->image);
  }
}

TEST_F(DialogTest, PreviewOpensWithTheStoredMap) {
  KivImage image(33, 17, 1, KIV_IMAGE_16U);
  cv::randu(image.Mat(), 0, 65536);
  KivLUTSetting lut;
  for (int stored = 0; stored <= 6; ++stored) {
    dialog::StoreCurrentColourMap(stored);
    ModalDriver driver;
    driver.Then([&](QWidget* widget) {
      auto* window = qobject_cast<KivLUTSettingDlgI*>(widget);
      EXPECT_EQ(window->findChild<QComboBox*>("comboBox")->currentIndex(), stored);
      KivImage expected;
      ASSERT_EQ(lut.SetColorLUT(image, &expected, stored), LUT_OK);
      EXPECT_TRUE(SameImage(DisplayedImage(window->ImageWindowHandle()), expected));
      window->findChild<QPushButton*>("CANCEL_BOTTON")->click();
    });
    KivLUTSettingDlgI window;
    EXPECT_EQ(window.ShowDialog(image), LUT_OK);
  }
}

TEST_F(DialogTest, PreviewSitsInsideImageWndWidgetAndFollowsResizes) {
  KivImage image(20, 10, 1, KIV_IMAGE_8U);
  image.Mat().setTo(100);
  long long handle = 0;
  ModalDriver driver;
  driver.Then([&](QWidget* widget) {
    auto* window = qobject_cast<KivLUTSettingDlgI*>(widget);
    handle = window->ImageWindowHandle();
    QWidget* imageWidget = window->findChild<QWidget*>("ImageWndWidget");
    QWidget* preview = KivImageWndWidget(handle);
    ASSERT_NE(preview, nullptr);
    EXPECT_EQ(preview->parentWidget(), imageWidget);
    QCoreApplication::processEvents();
    EXPECT_EQ(preview->geometry(),
              QRect(1, 1, imageWidget->width() - 1, imageWidget->height() - 1));
    window->resize(window->width() + 57, window->height() + 31);
    QCoreApplication::processEvents();
    EXPECT_EQ(preview->geometry(),
              QRect(1, 1, imageWidget->width() - 1, imageWidget->height() - 1));
    // The toolbar keeps the view items and drops saving.
    EXPECT_FALSE(preview->findChild<QAction*>("KivImageWndSave")->isVisible());
    for (const char* name :
         {"KivImageWndZoomIn", "KivImageWndZoomOut", "KivImageWndFit", "KivImageWndActualSize"}) {
      EXPECT_TRUE(preview->findChild<QAction*>(name)->isVisible()) << name;
    }
    window->findChild<QPushButton*>("OK_BOTTON")->click();
  });
  {
    KivLUTSettingDlgI window;
    EXPECT_EQ(window.ShowDialog(image), LUT_OK);
  }
  // The window's destructor destroyed the preview through the service, not just with its parent.
  ASSERT_NE(handle, 0);
  EXPECT_EQ(KivImageWndWidget(handle), nullptr);
  EXPECT_EQ(KivDestoryImageWnd(handle), kKivImageWndBadHandle);
}

TEST_F(DialogTest, WindowWithoutPreviewHasNoHandle) {
  KivLUTSettingDlgI window;
  EXPECT_EQ(window.ImageWindowHandle(), 0);
  // Resizing before any preview exists is harmless.
  window.resize(600, 500);
  window.show();
  QCoreApplication::processEvents();
  window.hide();
}

}  // namespace
}  // namespace KIVMV
