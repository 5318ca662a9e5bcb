#include "dialog/kiv_lut_setting_dlg_i.h"

#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QResizeEvent>
#include <QScreen>
#include <QWidget>

#include "KivImageWnd.h"
#include "KivLUTStatus.h"
#include "common/argument_rules.h"
#include "dialog/current_colour_map.h"
#include "dialog/dialog_geometry.h"

using KIVMV::KivImage;
using KIVMV::KivLUTSettingImpl;
using KIVMV::LUT_ERR_IMAGE_CHANNELS;
using KIVMV::LUT_ERR_IMAGE_EMPTY;
using KIVMV::LUT_ERR_PARAM_1;
using KIVMV::LUT_OK;
namespace dialog = KIVMV::dialog;

namespace {

// The preview's toolbar keeps the view items (zoom in, zoom out, fit, actual size) and loses
// saving, which belongs to the host's own windows.
constexpr long kHiddenToolbarItems = KIVMV::kKivToolbarSave;
constexpr long kShownToolbarItems = KIVMV::kKivToolbarZoomIn | KIVMV::kKivToolbarZoomOut |
                                    KIVMV::kKivToolbarFit | KIVMV::kKivToolbarActualSize;
static_assert(kHiddenToolbarItems == 1 && kShownToolbarItems == 0x78000000,
              "the image window's toolbar bits");

struct MapText {
  const char* id;
  const wchar_t* defaultText;
};
// Combo-box rows in map-number order; the jet map (6) has no text id.
constexpr MapText kMapTexts[] = {
    {"IDS_GRAY", L"Grey Level"},
    {"IDS_RAINBOW", L"Rainbow"},
    {"IDS_HOTMETAL", L"Hot Metal Code"},
    {"IDS_DIVERGING_MAP", L"Diverging Map"},
    {"IDS_ISOLUMINANT_MAP", L"Isoluminant Map"},
    {"IDS_RGB_MAP", L"RGB Map"},
};
constexpr char kJetMapText[] = "Jet Map";

}  // namespace

KivLUTSettingDlgI::KivLUTSettingDlgI(QWidget* parent) : QDialog(parent) {
  ui_.setupUi(this);

  // The default screen; a process without screens sizes the window from an empty rectangle.
  const QScreen* screen = QGuiApplication::primaryScreen();
  const QRect available = screen != nullptr ? screen->geometry() : QRect();
  resize(dialog::TruncatedShare(available.width(), dialog::kWidthShareOfScreen),
         dialog::TruncatedShare(available.height(), dialog::kHeightShareOfScreen));
  // Centred across, a quarter of the free height above: the window sits in the upper half.
  move(dialog::TruncatedShare(available.width() - width(), dialog::kLeftShareOfSlack),
       dialog::TruncatedShare(available.height() - height(), dialog::kTopShareOfSlack));

  connect(ui_.comboBox, SIGNAL(currentIndexChanged(int)), this, SLOT(slot_refresh(int)));
  connect(ui_.OK_BOTTON, SIGNAL(clicked()), this, SLOT(slot_OK()));
  connect(ui_.CANCEL_BOTTON, SIGNAL(clicked()), this, SLOT(slot_CANCEL()));

  setWindowFlags(windowFlags() | Qt::WindowMinimizeButtonHint);
}

KivLUTSettingDlgI::~KivLUTSettingDlgI() {
  // Before QDialog deletes the form: the image window lives inside ImageWndWidget.
  if (imageWindow_ != 0) KIVMV::KivDestoryImageWnd(imageWindow_);
}

long KivLUTSettingDlgI::ShowDialog(KivImage& image) {
  source_ = &image;

  KIVMV::KivCreateImageWnd(dialog::NarrowWindowId(ui_.ImageWndWidget->winId()), 0, 0,
                           ui_.ImageWndWidget->width(), ui_.ImageWndWidget->height(),
                           &imageWindow_);
  KIVMV::KivSetToolbarVisible(imageWindow_, kHiddenToolbarItems, false);
  KIVMV::KivSetToolbarVisible(imageWindow_, kShownToolbarItems, true);

  // The bit depth is judged first, so an unsupported image warns about its depth even when it
  // is also empty or has several channels.
  if (image.BitDepth() != KIVMV::KIV_IMAGE_8U && image.BitDepth() != KIVMV::KIV_IMAGE_16U) {
    ShowWarning("IDS_MSG_NOT_SUPPORT_CURRENT_BIT_DEPTH", L"Does not support current image depth!");
    return LUT_ERR_PARAM_1;
  }
  if (image.Height() == 0 || image.Width() == 0) {
    ShowWarning("IDS_MSG_NO_IMAGE", L"No Image");
    return LUT_ERR_IMAGE_EMPTY;
  }
  if (image.Channels() != 1) {
    ShowWarning("IDS_MSG_SUPPORT_SINGLECHANNELIMAGE", L"Only support single channel image!");
    return LUT_ERR_IMAGE_CHANNELS;
  }

  // Adding the first item already previews map 0.
  FillTexts();
  // A stored map of 7 to 10 has no row: the combo box then shows none (index -1).
  ui_.comboBox->setCurrentIndex(dialog::CurrentColourMap());
  exec();
  return LUT_OK;
}

long KivLUTSettingDlgI::Execute(KivImage& src, KivImage* dst) {
  if (src.Height() <= 0 || src.Width() <= 0) return LUT_ERR_IMAGE_EMPTY;
  if (src.Channels() != 1) return LUT_ERR_IMAGE_CHANNELS;
  KivLUTSettingImpl fresh;
  return fresh.SetColorLUT(src, dst, dialog::CurrentColourMap());
}

long KivLUTSettingDlgI::SetParam(int mapType) {
  if (!KIVMV::IsMapType(mapType)) return LUT_ERR_PARAM_1;
  dialog::StoreCurrentColourMap(mapType);
  return LUT_OK;
}

long KivLUTSettingDlgI::GetParam(int* mapType) {
  if (mapType == nullptr) return LUT_ERR_PARAM_1;
  *mapType = dialog::CurrentColourMap();
  return LUT_OK;
}

void KivLUTSettingDlgI::slot_refresh(int) {
  if (source_ == nullptr) return;
  // A copy shares the source's pixels; the routine reads them and never writes them.
  KivImage source(*source_);
  KivImage output;
  // A failing colouring leaves the output empty, and the preview shows that.
  colouring_.SetColorLUT(source, &output, ui_.comboBox->currentIndex());
  KIVMV::KivDisplayImage(imageWindow_, output);
  KIVMV::KivRefresh(imageWindow_);
}

void KivLUTSettingDlgI::slot_OK() {
  // The shown index is stored as it is: -1 when a stored map of 7 to 10 left no row selected.
  dialog::StoreCurrentColourMap(ui_.comboBox->currentIndex());
  close();
}

void KivLUTSettingDlgI::slot_CANCEL() { close(); }

void KivLUTSettingDlgI::resizeEvent(QResizeEvent* event) {
  QDialog::resizeEvent(event);
  // Inset by one pixel at the top left, so the widget's edge stays visible around the preview.
  KIVMV::KivMoveWindow(imageWindow_, 1, 1, ui_.ImageWndWidget->width() - 1,
                       ui_.ImageWndWidget->height() - 1);
}

QString KivLUTSettingDlgI::LoadText(const char* id, const wchar_t* defaultText) {
  textBuffer_ = defaultText;
  language_.DynamicLoadString(id, KIVMV::kDialogTextModule, &textBuffer_);
  const QString text = QString::fromStdWString(textBuffer_);
  textBuffer_.clear();
  return text;
}

void KivLUTSettingDlgI::ShowWarning(const char* id, const wchar_t* defaultText) {
  QMessageBox box;
  box.setWindowTitle(LoadText("IDS_MSGW_Title", L"Warning"));
  box.setText(LoadText(id, defaultText));
  // What the user sees: the fixed title, whatever the tables say.
  box.setWindowTitle(QStringLiteral("Info"));
  box.exec();
}

void KivLUTSettingDlgI::FillTexts() {
  ui_.comboBox->clear();
  for (const MapText& map : kMapTexts) ui_.comboBox->addItem(LoadText(map.id, map.defaultText));
  ui_.comboBox->addItem(QString::fromLatin1(kJetMapText));
  setWindowTitle(LoadText("IDD2000_Title", L"KivLUTSetting"));
  ui_.CodeType_Label->setText(LoadText("IDD2000_2003", L"Code Type"));
  ui_.OK_BOTTON->setText(LoadText("IDD2000_1", L"OK"));
  ui_.CANCEL_BOTTON->setText(LoadText("IDD2000_2", L"CANCEL"));
}
