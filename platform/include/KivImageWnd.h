#ifndef KIVMV_KIV_IMAGE_WND_H_
#define KIVMV_KIV_IMAGE_WND_H_

// Image-window service: a Qt widget that shows a KivImage, placed inside a native window of the
// host. It lives in the library kivplatform_gui (Qt 5 Widgets), so that kivplatform itself needs
// no Qt.
//
// Every function must be called on the thread of the process's QApplication; without a
// QApplication, or from another thread, it does nothing and returns kKivImageWndNoApplication.
// A window is named by the handle KivCreateImageWnd gives; handles are never reused, so a
// destroyed window's handle answers kKivImageWndBadHandle instead of reaching freed memory.

#include "KivImage.h"
#include "KivPlatformExport.h"
#include "KivPlatformStatus.h"

class QImage;
class QWidget;

namespace KIVMV {

inline constexpr long kKivImageWndNoApplication = 201;     // no QApplication, or not its thread
inline constexpr long kKivImageWndBadHandle = 202;         // not a live window of KivCreateImageWnd
inline constexpr long kKivImageWndParentNotFound = 203;    // no native window with that id
inline constexpr long kKivImageWndUnsupportedImage = 204;  // not 8/16 bits with 1 or 3 channels
inline constexpr long kKivImageWndFailed = 205;            // out of memory while converting

// Toolbar items, as bits of the `items` argument of KivSetToolbarVisible. Every item is visible
// when the window is created; the toolbar strip hides itself while none is.
inline constexpr long kKivToolbarSave = 0x00000001;        // save the shown picture as PNG
inline constexpr long kKivToolbarZoomIn = 0x08000000;      // enlarge by a quarter
inline constexpr long kKivToolbarZoomOut = 0x10000000;     // shrink by a fifth
inline constexpr long kKivToolbarFit = 0x20000000;         // fit the window (the default view)
inline constexpr long kKivToolbarActualSize = 0x40000000;  // one image pixel per screen pixel

// Creates a window at x, y (in the parent's coordinates) of width x height and shows it.
// parentWindowId is the native id (QWidget::winId, an X11 window id) of the window to place it
// in: a widget of this process, or a foreign native window where the platform embeds those (X11);
// 0 makes a top-level window. Negative sizes count as 0. *handle receives the new handle.
KIVMV_PLATFORM_API long KivCreateImageWnd(long parentWindowId, int x, int y, int width, int height,
                                          long long* handle);

// Shows `image` (8- or 16-bit samples, 1 channel grey or 3 channels blue, green, red) scaled to
// fit the window with its aspect ratio kept, each screen pixel taking the colour of the nearest
// image pixel; 16-bit samples are shown by their high byte. The window keeps its own copy. An
// empty image (no pixels) clears the window. Other images answer kKivImageWndUnsupportedImage
// and leave the window as it was.
KIVMV_PLATFORM_API long KivDisplayImage(long long handle, KivImage& image);

// Moves and resizes the window within its parent. Negative sizes count as 0.
KIVMV_PLATFORM_API long KivMoveWindow(long long handle, int x, int y, int width, int height);

// Shows or hides the toolbar items whose bits are set in `items`; other bits are ignored.
KIVMV_PLATFORM_API long KivSetToolbarVisible(long long handle, long items, bool visible);

// Asks the window to repaint.
KIVMV_PLATFORM_API long KivRefresh(long long handle);

// Destroys the window. A window whose parent was destroyed first is already gone: its handle is
// released and the answer is kKivPlatformOk.
KIVMV_PLATFORM_API long KivDestoryImageWnd(long long handle);

// ---- Queries: what a window shows (for hosts that need to read it back, and for tests) ----

// A deep copy of the image last given to KivDisplayImage (an empty image after an empty one or
// before any).
KIVMV_PLATFORM_API long KivGetDisplayedImage(long long handle, KivImage* image);

// The picture area as it is painted now, without the toolbar, one QImage pixel per widget pixel.
KIVMV_PLATFORM_API long KivGrabImageWnd(long long handle, QImage* picture);

// The window's widget, or nullptr for a handle that names no live window. The caller must not
// delete it.
KIVMV_PLATFORM_API QWidget* KivImageWndWidget(long long handle);

}  // namespace KIVMV

#endif  // KIVMV_KIV_IMAGE_WND_H_
