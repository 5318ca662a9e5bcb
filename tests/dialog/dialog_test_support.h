// Helpers for the dialog tests: a driver that answers the modal windows the code under test opens
// (each QDialog::exec or QMessageBox::exec blocks until something closes it), and reading back
// what the preview shows.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "KivImageWnd.h"
#include "KivLUTSettingDlg.h"
#include "dialog/current_colour_map.h"
#include "support/reference_helpers.h"

namespace KIVMV {
namespace testing_support {

// Answers modal windows in the order they open: the first handler gets the first modal window,
// and so on. A handler must close its window. A modal window for which no handler is left is
// closed and reported, and so is every modal window after `patience` milliseconds, so that a
// failing test ends instead of waiting forever.
class ModalDriver {
 public:
  using Handler = std::function<void(QWidget*)>;

  explicit ModalDriver(int patienceMs = 20000) : patienceMs_(patienceMs) {
    QObject::connect(&timer_, &QTimer::timeout, [this] { Poll(); });
    timer_.start(5);
    clock_.start();
  }
  ~ModalDriver() {
    timer_.stop();
    EXPECT_TRUE(handlers_.empty()) << handlers_.size() << " expected modal window(s) never opened";
  }
  ModalDriver(const ModalDriver&) = delete;
  ModalDriver& operator=(const ModalDriver&) = delete;

  void Then(Handler handler) { handlers_.push_back(std::move(handler)); }

  // Class names of the modal windows seen, in order.
  const std::vector<std::string>& Seen() const { return seen_; }

 private:
  void Poll() {
    QWidget* modal = QApplication::activeModalWidget();
    if (modal == nullptr || !modal->isVisible()) return;
    if (modal == current_.data()) {
      if (clock_.elapsed() > patienceMs_) {
        ADD_FAILURE() << "a modal window stayed open too long; closing it";
        Close(modal);
      }
      return;
    }
    current_ = modal;
    seen_.push_back(modal->metaObject()->className());
    if (handlers_.empty()) {
      ADD_FAILURE() << "unexpected modal window " << seen_.back();
      Close(modal);
      return;
    }
    Handler handler = std::move(handlers_.front());
    handlers_.pop_front();
    handler(modal);
  }

  static void Close(QWidget* modal) {
    if (auto* dialog = qobject_cast<QDialog*>(modal)) {
      dialog->reject();
    } else {
      modal->close();
    }
  }

  QTimer timer_;
  QElapsedTimer clock_;
  int patienceMs_;
  QPointer<QWidget> current_;
  std::deque<Handler> handlers_;
  std::vector<std::string> seen_;
};

// What a preview window shows now (a deep copy), read through the image-window service.
inline KivImage DisplayedImage(long long handle) {
  KivImage shown;
  EXPECT_EQ(KivGetDisplayedImage(handle, &shown), kKivPlatformOk);
  return shown;
}

// Two images hold the same matrix type, size and bytes.
inline ::testing::AssertionResult SameImage(const KivImage& actual, const KivImage& expected) {
  const cv::Mat& a = actual.Mat();
  const cv::Mat& e = expected.Mat();
  if (a.type() != e.type() || a.rows != e.rows || a.cols != e.cols) {
    return ::testing::AssertionFailure()
           << "type/size " << a.type() << " " << a.cols << "x" << a.rows << ", expected "
           << e.type() << " " << e.cols << "x" << e.rows;
  }
  if (MatBytes(a) != MatBytes(e)) return ::testing::AssertionFailure() << "pixels differ";
  return ::testing::AssertionSuccess();
}

// Every test ends with the current colour map back at its initial 0, whatever it stored, so that
// tests run in one process do not see each other's choice.
class DialogTest : public ::testing::Test {
 protected:
  void TearDown() override { dialog::StoreCurrentColourMap(0); }

  // Makes the process's QApplication (under the offscreen platform the tests run with).
  KivLUTSettingDlg facade_;
};

}  // namespace testing_support
}  // namespace KIVMV
