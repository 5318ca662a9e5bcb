// The dialog's form, built the way Qt's form compiler lays out a form: the widgets and layouts
// in creation order, with the object names the host's style sheets and tests address
// (misspellings such as "OK_BOTTON" included).
#pragma once

class QComboBox;
class QDialog;
class QGridLayout;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QScrollArea;
class QSpacerItem;
class QVBoxLayout;
class QWidget;

namespace KIVMV {

struct KivLUTSettingForm {
  QGridLayout* gridLayout = nullptr;
  QHBoxLayout* horizontalLayout_3 = nullptr;
  QWidget* ImageWndWidget = nullptr;
  QSpacerItem* horizontalSpacer = nullptr;
  QVBoxLayout* verticalLayout = nullptr;
  QScrollArea* scrollArea = nullptr;
  QWidget* scrollAreaWidgetContents = nullptr;
  QComboBox* comboBox = nullptr;
  QLabel* CodeType_Label = nullptr;
  QSpacerItem* verticalSpacer = nullptr;
  QHBoxLayout* horizontalLayout_2 = nullptr;
  QSpacerItem* horizontalSpacer_2 = nullptr;
  QHBoxLayout* horizontalLayout = nullptr;
  QPushButton* OK_BOTTON = nullptr;
  QPushButton* CANCEL_BOTTON = nullptr;

  // Creates every widget and layout on `Dialog`, sets the built-in texts, then connects slots by
  // name.
  void setupUi(QDialog* Dialog);
  // The built-in texts, through QCoreApplication::translate with context "Dialog".
  void retranslateUi(QDialog* Dialog);
};

}  // namespace KIVMV
