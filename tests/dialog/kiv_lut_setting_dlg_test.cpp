// The exported facade: the current colour map, Execute against SetColorLUT, ShowDialog's
// buttons and warnings, and the application set-up.
#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QPushButton>
#include <climits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "KivLUTSetting.h"
#include "KivLUTSettingDlg.h"
#include "common/fault_injection.h"
#include "dialog/dialog_test_support.h"
#include "dialog/kiv_lut_setting_dlg_i.h"
#include "image/image_test_support.h"
#include "support/scoped_environment.h"

namespace KIVMV {
namespace {

using testing_support::DialogTest;
using testing_support::DisplayedImage;
using testing_support::ModalDriver;
using testing_support::SameImage;

// First in the file, so that a run of the whole program sees the value no test has touched (ctest
// runs every test in a process of its own anyway).
TEST(KivLUTSettingDlgFacade, CurrentMapStartsAtGrey) {
  KivLUTSettingDlg facade;
  int mapType = 99;
  EXPECT_EQ(facade.GetParam(&mapType), LUT_OK);
  EXPECT_EQ(mapType, 0);
}

TEST_F(DialogTest, ConstructorProvidesOneApplication) {
  auto* application = qobject_cast<QApplication*>(QCoreApplication::instance());
  ASSERT_NE(application, nullptr);
  {
    KivLUTSettingDlg second;
    EXPECT_EQ(QCoreApplication::instance(), application);
  }
  // The application outlives the facades: it is the process's, not theirs.
  EXPECT_EQ(QCoreApplication::instance(), application);
}

TEST_F(DialogTest, SetParamAcceptsZeroToTenOnly) {
  for (int mapType = 0; mapType <= 10; ++mapType) {
    EXPECT_EQ(facade_.SetParam(mapType), LUT_OK) << mapType;
    int stored = -99;
    EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
    EXPECT_EQ(stored, mapType);
  }
  ASSERT_EQ(facade_.SetParam(4), LUT_OK);
  // Compared as unsigned, so negative numbers are above 10 too.
  for (int mapType : {11, 12, 255, INT_MAX, -1, -10, INT_MIN}) {
    EXPECT_EQ(facade_.SetParam(mapType), LUT_ERR_PARAM_1) << mapType;
    int stored = -99;
    EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
    EXPECT_EQ(stored, 4) << "a refused value must not be stored";
  }
}

TEST_F(DialogTest, CurrentMapIsSharedByAllFacades) {
  KivLUTSettingDlg other;
  ASSERT_EQ(facade_.SetParam(6), LUT_OK);
  int stored = -1;
  EXPECT_EQ(other.GetParam(&stored), LUT_OK);
  EXPECT_EQ(stored, 6);
}

TEST_F(DialogTest, GetParamRefusesANullPointer) {
  EXPECT_EQ(facade_.GetParam(nullptr), LUT_ERR_PARAM_1);
}

// Execute is SetColorLUT with the stored map, status and pixels alike.
TEST_F(DialogTest, ExecuteEqualsSetColorLUTWithTheStoredMap) {
  std::mt19937_64 random(20240607);
  KivLUTSetting lut;
  for (const auto& [width, height] : testing_support::GreyImageSizes()) {
    for (int padding : {0, 3}) {
      auto eight = testing_support::RandomGreyImage<uint8_t>(width, height, padding, random);
      auto sixteen = testing_support::RandomGreyImage<uint16_t>(width, height, padding, random);
      for (KivImage* source : {&eight->image, &sixteen->image}) {
        const KivImage before = source->DeepCopy();
        for (int mapType = 0; mapType <= 10; ++mapType) {
          SCOPED_TRACE(::testing::Message()
                       << width << "x" << height << " padding " << padding << " depth "
                       << source->BitDepth() << " map " << mapType);
          ASSERT_EQ(facade_.SetParam(mapType), LUT_OK);
          KivImage executed;
          KivImage expected;
          const long status = facade_.Execute(*source, &executed);
          EXPECT_EQ(status, lut.SetColorLUT(*source, &expected, mapType));
          EXPECT_EQ(status, LUT_OK);
          EXPECT_TRUE(SameImage(executed, expected));
        }
        EXPECT_TRUE(SameImage(*source, before)) << "the source must not change";
      }
    }
  }
}

TEST_F(DialogTest, ExecuteOnRealFrames) {
  const auto frames = testing_support::LoadRealGreyFrames();
  if (frames.empty()) GTEST_SKIP() << "no real sensor frames in the shared data folder";
  KivLUTSetting lut;
  for (const auto& frame : frames) {
    for (bool eightBit : {false, true}) {
      KivImage source = testing_support::GreyImageFrom(frame.image, eightBit);
      for (int mapType : {0, 1, 6, 9}) {
        ASSERT_EQ(facade_.SetParam(mapType), LUT_OK);
        KivImage executed;
        KivImage expected;
        EXPECT_EQ(facade_.Execute(source, &executed), lut.SetColorLUT(source, &expected, mapType));
        EXPECT_TRUE(SameImage(executed, expected)) << frame.name << " map " << mapType;
      }
    }
  }
}

TEST_F(DialogTest, ExecuteChecksEmptinessThenChannels) {
  ASSERT_EQ(facade_.SetParam(1), LUT_OK);
  KivImage untouched(2, 2, 3, KIV_IMAGE_8U);
  untouched.Mat().setTo(cv::Scalar(1, 2, 3));
  const KivImage before = untouched.DeepCopy();
  struct Case {
    KivImage source;
    long status;
  } cases[] = {
      {KivImage(), LUT_ERR_IMAGE_EMPTY},
      {KivImage(0, 4, 1, KIV_IMAGE_8U), LUT_ERR_IMAGE_EMPTY},
      {KivImage(4, 0, 1, KIV_IMAGE_16U), LUT_ERR_IMAGE_EMPTY},
      {KivImage(0, 0, 3, KIV_IMAGE_8U), LUT_ERR_IMAGE_EMPTY},  // emptiness first
      {KivImage(4, 4, 3, KIV_IMAGE_8U), LUT_ERR_IMAGE_CHANNELS},
      {KivImage(4, 4, 4, KIV_IMAGE_16U), LUT_ERR_IMAGE_CHANNELS},
      // Past its own checks, Execute answers what the colouring answers.
      {KivImage(4, 4, 1, KIV_IMAGE_8S), LUT_ERR_IMAGE_BIT_DEPTH},
      {KivImage(4, 4, 1, KIV_IMAGE_32F), LUT_ERR_IMAGE_BIT_DEPTH},
  };
  for (Case& c : cases) {
    EXPECT_EQ(facade_.Execute(c.source, &untouched), c.status);
    EXPECT_TRUE(SameImage(untouched, before));
  }
  KivImage grey(3, 3, 1, KIV_IMAGE_8U);
  EXPECT_EQ(facade_.Execute(grey, nullptr), LUT_ERR_PARAM_2);
}

TEST_F(DialogTest, ExecuteShowsNothing) {
  KivImage grey(5, 5, 1, KIV_IMAGE_8U);
  KivImage out;
  ModalDriver driver;  // fails the test on any modal window
  ASSERT_EQ(facade_.Execute(grey, &out), LUT_OK);
  QCoreApplication::processEvents();
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    EXPECT_FALSE(widget->isVisible()) << widget->metaObject()->className();
  }
  EXPECT_TRUE(driver.Seen().empty());
}

// A grey image with every level from 1 to 255 and some zeros.
KivImage GreyRamp() {
  KivImage image(40, 30, 1, KIV_IMAGE_8U);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x)
      image.Mat().at<uint8_t>(y, x) = static_cast<uint8_t>((x * 7 + y * 3) % 256);
  }
  return image;
}

TEST_F(DialogTest, OkStoresTheShownIndex) {
  ASSERT_EQ(facade_.SetParam(2), LUT_OK);
  KivImage image = GreyRamp();
  ModalDriver driver;
  int openedAt = -99;
  driver.Then([&](QWidget* window) {
    auto* combo = window->findChild<QComboBox*>("comboBox");
    ASSERT_NE(combo, nullptr);
    openedAt = combo->currentIndex();
    combo->setCurrentIndex(4);
    window->findChild<QPushButton*>("OK_BOTTON")->click();
  });
  EXPECT_EQ(facade_.ShowDialog(image), LUT_OK);
  EXPECT_EQ(openedAt, 2);
  int stored = -1;
  EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
  EXPECT_EQ(stored, 4);
  EXPECT_EQ(driver.Seen(), std::vector<std::string>{"KivLUTSettingDlgI"});
}

TEST_F(DialogTest, CancelAndClosingChangeNothing) {
  ASSERT_EQ(facade_.SetParam(3), LUT_OK);
  KivImage image = GreyRamp();
  ModalDriver driver;
  driver.Then([](QWidget* window) {
    window->findChild<QComboBox*>("comboBox")->setCurrentIndex(5);
    window->findChild<QPushButton*>("CANCEL_BOTTON")->click();
  });
  driver.Then([](QWidget* window) {
    window->findChild<QComboBox*>("comboBox")->setCurrentIndex(6);
    window->close();
  });
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(facade_.ShowDialog(image), LUT_OK);
    int stored = -1;
    EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
    EXPECT_EQ(stored, 3);
  }
}

// Maps 7 to 10 have no row: the window opens with none selected, the preview shows what the
// colouring gives for index -1 (nothing), and OK then stores -1.
TEST_F(DialogTest, StoredMapsWithoutARowOpenWithNoneSelected) {
  KivImage image = GreyRamp();
  for (int mapType = 7; mapType <= 10; ++mapType) {
    ASSERT_EQ(facade_.SetParam(mapType), LUT_OK);
    ModalDriver driver;
    driver.Then([&](QWidget* window) {
      auto* dialogWindow = qobject_cast<KivLUTSettingDlgI*>(window);
      ASSERT_NE(dialogWindow, nullptr);
      auto* combo = window->findChild<QComboBox*>("comboBox");
      EXPECT_EQ(combo->count(), 7);
      EXPECT_EQ(combo->currentIndex(), -1);
      KivImage expected;
      KivLUTSettingImpl().SetColorLUT(image, &expected, -1);
      EXPECT_TRUE(SameImage(DisplayedImage(dialogWindow->ImageWindowHandle()), expected));
      window->findChild<QPushButton*>("OK_BOTTON")->click();
    });
    EXPECT_EQ(facade_.ShowDialog(image), LUT_OK);
    int stored = 99;
    EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
    EXPECT_EQ(stored, -1) << "OK stores the shown index as it is";
  }
}

struct WarningCase {
  const char* what;
  KivImage image;
  long status;
  const char* english;
  const char* chinese;
};

std::vector<WarningCase> WarningCases() {
  const char* depth = "Does not support current image depth!";
  const char* depthZh =
      "\xE4\xB8\x8D\xE6\x94\xAF\xE6\x8C\x81\xE5\xBD\x93\xE5\x89\x8D\xE5\x9B\xBE"
      "\xE5\x83\x8F\xE4\xBD\x8D\xE6\xB7\xB1\xEF\xBC\x81";  // 不支持当前图像位深！
  const char* empty = "No Image";
  const char* emptyZh = "\xE6\xB2\xA1\xE6\x9C\x89\xE5\x9B\xBE\xE5\x83\x8F";  // 没有图像
  const char* channels = "Only support single channel image!";
  const char* channelsZh =
      "\xE4\xBB\x85\xE6\x94\xAF\xE6\x8C\x81\xE5\x8D\x95\xE9\x80\x9A\xE9\x81"
      "\x93\xE5\x9B\xBE\xE5\x83\x8F\xEF\xBC\x81";  // 仅支持单通道图像！
  return {
      {"8S", KivImage(5, 5, 1, KIV_IMAGE_8S), LUT_ERR_PARAM_1, depth, depthZh},
      {"32F", KivImage(5, 5, 1, KIV_IMAGE_32F), LUT_ERR_PARAM_1, depth, depthZh},
      // The bit depth is judged before emptiness and channels.
      {"empty 3-channel 64F", KivImage(0, 0, 3, KIV_IMAGE_64F), LUT_ERR_PARAM_1, depth, depthZh},
      {"default image", KivImage(), LUT_ERR_IMAGE_EMPTY, empty, emptyZh},
      {"no rows", KivImage(6, 0, 1, KIV_IMAGE_16U), LUT_ERR_IMAGE_EMPTY, empty, emptyZh},
      // Emptiness before channels.
      {"empty 3-channel", KivImage(0, 3, 3, KIV_IMAGE_8U), LUT_ERR_IMAGE_EMPTY, empty, emptyZh},
      {"3 channels", KivImage(4, 4, 3, KIV_IMAGE_8U), LUT_ERR_IMAGE_CHANNELS, channels, channelsZh},
      {"4 channels", KivImage(4, 4, 4, KIV_IMAGE_16U), LUT_ERR_IMAGE_CHANNELS, channels,
       channelsZh},
  };
}

void CheckWarnings(KivLUTSettingDlg& facade, bool chinese) {
  for (WarningCase& c : WarningCases()) {
    SCOPED_TRACE(c.what);
    ModalDriver driver;
    QString title;
    QString text;
    bool parentless = false;
    driver.Then([&](QWidget* window) {
      auto* box = qobject_cast<QMessageBox*>(window);
      ASSERT_NE(box, nullptr);
      title = box->windowTitle();
      text = box->text();
      parentless = box->parentWidget() == nullptr;
      box->accept();
    });
    EXPECT_EQ(facade.ShowDialog(c.image), c.status);
    EXPECT_EQ(title.toStdString(), "Info");
    EXPECT_EQ(text.toStdString(), chinese ? c.chinese : c.english);
    EXPECT_TRUE(parentless);
    EXPECT_EQ(driver.Seen(), std::vector<std::string>{"QMessageBox"});
  }
}

TEST_F(DialogTest, WarningsTitledInfoInOrderBitDepthEmptinessChannels) {
  testing_support::ScopedEnvironment language("KIV_LANG", "en");
  CheckWarnings(facade_, false);
}

TEST_F(DialogTest, WarningsInChineseKeepTheTitleInfo) {
  testing_support::ScopedEnvironment language("KIV_LANG", "zh_CN");
  CheckWarnings(facade_, true);
}

TEST_F(DialogTest, WarningsLeaveTheCurrentMapAlone) {
  ASSERT_EQ(facade_.SetParam(5), LUT_OK);
  KivImage threeChannels(4, 4, 3, KIV_IMAGE_8U);
  ModalDriver driver;
  driver.Then([](QWidget* window) { qobject_cast<QMessageBox*>(window)->accept(); });
  EXPECT_EQ(facade_.ShowDialog(threeChannels), LUT_ERR_IMAGE_CHANNELS);
  int stored = -1;
  EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
  EXPECT_EQ(stored, 5);
}

TEST_F(DialogTest, FailureWhileBuildingTheWindowIsAStatus) {
  ASSERT_EQ(facade_.SetParam(2), LUT_OK);
  KivImage image = GreyRamp();
  KivImage out;
  int stored = -1;
  {
    ScopedFault fault(FaultStage::kDialogWindow);
    ModalDriver driver;  // nothing may open
    EXPECT_EQ(facade_.ShowDialog(image), LUT_ERR_ARRAY_APPLY_FAILED);
    EXPECT_EQ(facade_.Execute(image, &out), LUT_ERR_ARRAY_APPLY_FAILED);
    EXPECT_EQ(facade_.SetParam(3), LUT_ERR_ARRAY_APPLY_FAILED);
    EXPECT_EQ(facade_.GetParam(&stored), LUT_ERR_ARRAY_APPLY_FAILED);
  }
  EXPECT_EQ(stored, -1);
  EXPECT_TRUE(out.Mat().empty());
  EXPECT_EQ(facade_.GetParam(&stored), LUT_OK);
  EXPECT_EQ(stored, 2);
}

// Widgets belong to the GUI thread. From another thread the window cannot be built: ShowDialog
// answers with a status instead of breaking Qt, and the methods that need no window still work.
TEST_F(DialogTest, OtherThreadsGetAStatusInsteadOfAWindow) {
  KivImage image = GreyRamp();
  long shown = -1;
  long set = -1;
  long executed = -1;
  int stored = -1;
  KivImage out;
  std::thread worker([&] {
    shown = facade_.ShowDialog(image);
    set = facade_.SetParam(5);
    executed = facade_.Execute(image, &out);
    facade_.GetParam(&stored);
  });
  worker.join();
  EXPECT_EQ(shown, LUT_ERR_ARRAY_APPLY_FAILED);
  EXPECT_EQ(set, LUT_OK);
  EXPECT_EQ(stored, 5);
  EXPECT_EQ(executed, LUT_OK);
  KivImage expected;
  ASSERT_EQ(KivLUTSetting().SetColorLUT(image, &expected, 5), LUT_OK);
  EXPECT_TRUE(SameImage(out, expected));
}

}  // namespace
}  // namespace KIVMV
