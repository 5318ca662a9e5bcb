#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QImage>
#include <QPainter>
#include <QPointer>
#include <QThread>
#include <QToolBar>
#include <QVBoxLayout>
#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <utility>

#include "KivImageWnd.h"

namespace KIVMV {
namespace {

// The colour around the picture when its aspect ratio differs from the window's.
const QColor kBackground(64, 64, 64);

constexpr double kZoomInFactor = 1.25;
constexpr double kZoomOutFactor = 0.8;

struct ToolbarItem {
  long bit;
  const char* objectName;
  const char* text;
};
constexpr ToolbarItem kToolbarItems[] = {
    {kKivToolbarSave, "KivImageWndSave", "Save"},
    {kKivToolbarZoomIn, "KivImageWndZoomIn", "Zoom in"},
    {kKivToolbarZoomOut, "KivImageWndZoomOut", "Zoom out"},
    {kKivToolbarFit, "KivImageWndFit", "Fit"},
    {kKivToolbarActualSize, "KivImageWndActualSize", "1:1"},
};

// (a * b + c / 2) / c in 64 bits: a length scaled by b / c, rounded half up.
int ScaleLength(int a, int b, int c) {
  const std::int64_t scaled = (static_cast<std::int64_t>(a) * b + c / 2) / c;
  return static_cast<int>(std::min<std::int64_t>(scaled, INT32_MAX));
}

// The picture of a displayable image: grey 8-bit or RGB 8-bit, 16-bit samples by their high
// byte. A null QImage for an empty image.
QImage ToPicture(const KivImage& image) {
  const cv::Mat& pixels = image.Mat();
  if (pixels.empty() || image.Width() <= 0 || image.Height() <= 0) return QImage();
  const bool sixteen = pixels.depth() == CV_16U;
  const bool colour = pixels.channels() == 3;
  QImage picture(pixels.cols, pixels.rows,
                 colour ? QImage::Format_RGB888 : QImage::Format_Grayscale8);
  if (picture.isNull()) throw std::bad_alloc();
  const int samples = pixels.cols * pixels.channels();
  for (int y = 0; y < pixels.rows; ++y) {
    uchar* out = picture.scanLine(y);
    if (sixteen) {
      const auto* row = pixels.ptr<std::uint16_t>(y);
      for (int i = 0; i < samples; ++i) out[i] = static_cast<uchar>(row[i] >> 8);
    } else {
      const auto* row = pixels.ptr<std::uint8_t>(y);
      std::copy(row, row + samples, out);
    }
    if (colour) {
      // The library's colours are blue first; the picture's are red first.
      for (int x = 0; x < pixels.cols; ++x) std::swap(out[3 * x], out[3 * x + 2]);
    }
  }
  return picture;
}

bool IsDisplayable(const KivImage& image) {
  const int depth = image.Mat().depth();
  const int channels = image.Mat().channels();
  return (depth == CV_8U || depth == CV_16U) && (channels == 1 || channels == 3);
}

// Paints the picture: fitted and centred, or at a fixed zoom and centred.
class ImageCanvas : public QWidget {
 public:
  explicit ImageCanvas(QWidget* parent) : QWidget(parent) {
    setObjectName("KivImageWndCanvas");
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(0, 0);
  }

  void SetPicture(QImage picture) { picture_ = std::move(picture); }
  const QImage& Picture() const { return picture_; }

  void Fit() {
    fit_ = true;
    update();
  }
  void ActualSize() {
    fit_ = false;
    zoom_ = 1.0;
    update();
  }
  void Zoom(double factor) {
    if (!picture_.isNull()) {
      zoom_ =
          (fit_ ? static_cast<double>(TargetRect().width()) / picture_.width() : zoom_) * factor;
      zoom_ = std::clamp(zoom_, 1.0 / 64.0, 64.0);
      fit_ = false;
    }
    update();
  }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    painter.fillRect(rect(), kBackground);
    // No smoothing: every screen pixel takes the colour of one image pixel, so a colour-mapped
    // picture shows only colours of its map.
    if (!picture_.isNull()) painter.drawImage(TargetRect(), picture_);
  }

 private:
  QRect TargetRect() const {
    const int w = picture_.width();
    const int h = picture_.height();
    int drawnWidth;
    int drawnHeight;
    if (!fit_) {
      drawnWidth = std::max(1, static_cast<int>(w * zoom_ + 0.5));
      drawnHeight = std::max(1, static_cast<int>(h * zoom_ + 0.5));
    } else if (static_cast<std::int64_t>(width()) * h <= static_cast<std::int64_t>(height()) * w) {
      drawnWidth = width();
      drawnHeight = ScaleLength(h, width(), w);
    } else {
      drawnHeight = height();
      drawnWidth = ScaleLength(w, height(), h);
    }
    return QRect((width() - drawnWidth) / 2, (height() - drawnHeight) / 2, drawnWidth, drawnHeight);
  }

  QImage picture_;
  bool fit_ = true;
  double zoom_ = 1.0;
};

class ImageWindow : public QWidget {
 public:
  explicit ImageWindow(QWidget* parent) : QWidget(parent) {
    setObjectName("KivImageWnd");
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    // The host decides the size, down to nothing: the toolbar's width is no lower limit.
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    toolbar_ = new QToolBar(this);
    toolbar_->setObjectName("KivImageWndToolbar");
    toolbar_->setToolButtonStyle(Qt::ToolButtonTextOnly);
    canvas_ = new ImageCanvas(this);
    layout->addWidget(toolbar_);
    layout->addWidget(canvas_, 1);
    for (const ToolbarItem& item : kToolbarItems) {
      QAction* action = toolbar_->addAction(QString::fromLatin1(item.text));
      action->setObjectName(QString::fromLatin1(item.objectName));
      actions_.emplace(item.bit, action);
    }
    QObject::connect(actions_.at(kKivToolbarSave), &QAction::triggered, this, [this] { Save(); });
    QObject::connect(actions_.at(kKivToolbarZoomIn), &QAction::triggered, this,
                     [this] { canvas_->Zoom(kZoomInFactor); });
    QObject::connect(actions_.at(kKivToolbarZoomOut), &QAction::triggered, this,
                     [this] { canvas_->Zoom(kZoomOutFactor); });
    QObject::connect(actions_.at(kKivToolbarFit), &QAction::triggered, this,
                     [this] { canvas_->Fit(); });
    QObject::connect(actions_.at(kKivToolbarActualSize), &QAction::triggered, this,
                     [this] { canvas_->ActualSize(); });
  }

  void Display(const KivImage& image) {
    KivImage copy = image.DeepCopy();
    canvas_->SetPicture(ToPicture(copy));
    shown_ = std::move(copy);
    canvas_->update();
  }

  void SetItemsVisible(long items, bool visible) {
    bool any = false;
    for (auto& [bit, action] : actions_) {
      if ((items & bit) != 0) action->setVisible(visible);
      any = any || action->isVisible();
    }
    toolbar_->setVisible(any);
  }

  void Refresh() { canvas_->update(); }
  const KivImage& Shown() const { return shown_; }
  ImageCanvas* Canvas() const { return canvas_; }

 private:
  void Save() {
    if (canvas_->Picture().isNull()) return;
    const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save image"), QString(),
                                                      QStringLiteral("PNG image (*.png)"));
    if (!path.isEmpty()) canvas_->Picture().save(path, "PNG");
  }

  QToolBar* toolbar_ = nullptr;
  ImageCanvas* canvas_ = nullptr;
  std::map<long, QAction*> actions_;
  KivImage shown_;
};

struct WindowEntry {
  QPointer<ImageWindow> window;      // null once a parent widget has deleted it
  QWindow* foreignParent = nullptr;  // wrapper of a foreign native parent, owned here
};

// Only the GUI thread reaches the registry (GuiReady), so it needs no lock.
struct Registry {
  std::map<long long, WindowEntry> windows;
  long long nextHandle = 1;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

bool GuiReady() {
  const auto* application = qobject_cast<QApplication*>(QCoreApplication::instance());
  return application != nullptr && QThread::currentThread() == application->thread();
}

// The live window of a handle, or nullptr.
ImageWindow* Find(long long handle) {
  Registry& registry = TheRegistry();
  const auto found = registry.windows.find(handle);
  return found == registry.windows.end() ? nullptr : found->second.window.data();
}

// Runs `work` on the live window of `handle`, turning failures into status codes.
template <typename Work>
long WithWindow(long long handle, Work&& work) {
  if (!GuiReady()) return kKivImageWndNoApplication;
  ImageWindow* window = Find(handle);
  if (window == nullptr) return kKivImageWndBadHandle;
  try {
    return work(*window);
  } catch (const std::exception&) {
    return kKivImageWndFailed;
  } catch (...) {
    return kKivImageWndFailed;
  }
}

}  // namespace

long KivCreateImageWnd(long parentWindowId, int x, int y, int width, int height,
                       long long* handle) {
  if (handle == nullptr) return kKivPlatformNullArgument;
  if (!GuiReady()) return kKivImageWndNoApplication;
  if (parentWindowId < 0) return kKivImageWndParentNotFound;
  try {
    QWidget* parent = nullptr;
    std::unique_ptr<QWindow> foreign;
    if (parentWindowId != 0) {
      const auto id = static_cast<WId>(parentWindowId);
      parent = QWidget::find(id);
      if (parent == nullptr) {
        // Not a widget of ours: a native window of another toolkit or process, which only
        // platforms with foreign-window support (X11) can embed into; the others answer null.
        foreign.reset(QWindow::fromWinId(id));
        if (!foreign) return kKivImageWndParentNotFound;
      }
    }
    auto* window = new ImageWindow(parent);
    window->setGeometry(x, y, std::max(0, width), std::max(0, height));
    if (foreign) {
      window->winId();
      window->windowHandle()->setParent(foreign.get());
    }
    window->show();
    Registry& registry = TheRegistry();
    const long long newHandle = registry.nextHandle++;
    registry.windows[newHandle] = WindowEntry{QPointer<ImageWindow>(window), foreign.release()};
    *handle = newHandle;
    return kKivPlatformOk;
  } catch (const std::exception&) {
    return kKivImageWndFailed;
  }
}

long KivDisplayImage(long long handle, KivImage& image) {
  return WithWindow(handle, [&](ImageWindow& window) {
    if (!image.Mat().empty() && !IsDisplayable(image)) return kKivImageWndUnsupportedImage;
    window.Display(image);
    return kKivPlatformOk;
  });
}

long KivMoveWindow(long long handle, int x, int y, int width, int height) {
  return WithWindow(handle, [&](ImageWindow& window) {
    window.setGeometry(x, y, std::max(0, width), std::max(0, height));
    return kKivPlatformOk;
  });
}

long KivSetToolbarVisible(long long handle, long items, bool visible) {
  return WithWindow(handle, [&](ImageWindow& window) {
    window.SetItemsVisible(items, visible);
    return kKivPlatformOk;
  });
}

long KivRefresh(long long handle) {
  return WithWindow(handle, [](ImageWindow& window) {
    window.Refresh();
    return kKivPlatformOk;
  });
}

long KivDestoryImageWnd(long long handle) {
  if (!GuiReady()) return kKivImageWndNoApplication;
  Registry& registry = TheRegistry();
  const auto found = registry.windows.find(handle);
  if (found == registry.windows.end()) return kKivImageWndBadHandle;
  const WindowEntry entry = found->second;
  registry.windows.erase(found);
  delete entry.window.data();
  // The wrapper goes after the window that was placed in it; the foreign window itself stays.
  delete entry.foreignParent;
  return kKivPlatformOk;
}

long KivGetDisplayedImage(long long handle, KivImage* image) {
  if (image == nullptr) return kKivPlatformNullArgument;
  return WithWindow(handle, [&](ImageWindow& window) {
    *image = window.Shown().DeepCopy();
    return kKivPlatformOk;
  });
}

long KivGrabImageWnd(long long handle, QImage* picture) {
  if (picture == nullptr) return kKivPlatformNullArgument;
  return WithWindow(handle, [&](ImageWindow& window) {
    *picture = window.Canvas()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    return kKivPlatformOk;
  });
}

QWidget* KivImageWndWidget(long long handle) {
  if (!GuiReady()) return nullptr;
  return Find(handle);
}

}  // namespace KIVMV
