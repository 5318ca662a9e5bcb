#include "dialog/kiv_lut_setting_form.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDialog>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMetaObject>
#include <QPushButton>
#include <QScrollArea>
#include <QSizePolicy>
#include <QSpacerItem>
#include <QVBoxLayout>
#include <QWidget>

namespace KIVMV {
namespace {

// Qt's largest widget size (QWIDGETSIZE_MAX): no upper limit.
constexpr int kNoLimit = 16777215;

void SetPolicy(QWidget* widget, QSizePolicy::Policy horizontal, QSizePolicy::Policy vertical) {
  QSizePolicy policy(horizontal, vertical);
  policy.setHorizontalStretch(0);
  policy.setVerticalStretch(0);
  policy.setHeightForWidth(widget->sizePolicy().hasHeightForWidth());
  widget->setSizePolicy(policy);
}

}  // namespace

void KivLUTSettingForm::setupUi(QDialog* Dialog) {
  if (Dialog->objectName().isEmpty()) Dialog->setObjectName(QString::fromUtf8("Dialog"));
  Dialog->resize(1080, 800);
  Dialog->setMinimumSize(QSize(450, 0));
  Dialog->setMaximumSize(QSize(kNoLimit, kNoLimit));

  gridLayout = new QGridLayout(Dialog);
  gridLayout->setSpacing(0);
  gridLayout->setObjectName(QString::fromUtf8("gridLayout"));
  gridLayout->setContentsMargins(0, 0, 0, 0);

  horizontalLayout_3 = new QHBoxLayout();
  horizontalLayout_3->setSpacing(5);
  horizontalLayout_3->setObjectName(QString::fromUtf8("horizontalLayout_3"));
  // -1: the style's default for that side.
  horizontalLayout_3->setContentsMargins(1, -1, -1, -1);

  ImageWndWidget = new QWidget(Dialog);
  ImageWndWidget->setObjectName(QString::fromUtf8("ImageWndWidget"));
  SetPolicy(ImageWndWidget, QSizePolicy::Preferred, QSizePolicy::Preferred);
  ImageWndWidget->setMinimumSize(QSize(80, 80));
  ImageWndWidget->setMaximumSize(QSize(kNoLimit, kNoLimit));
  horizontalLayout_3->addWidget(ImageWndWidget);

  horizontalSpacer = new QSpacerItem(10, 20, QSizePolicy::Fixed, QSizePolicy::Minimum);
  horizontalLayout_3->addItem(horizontalSpacer);

  verticalLayout = new QVBoxLayout();
  verticalLayout->setObjectName(QString::fromUtf8("verticalLayout"));
  verticalLayout->setContentsMargins(-1, 30, -1, 2);

  scrollArea = new QScrollArea(Dialog);
  scrollArea->setObjectName(QString::fromUtf8("scrollArea"));
  scrollArea->setMinimumSize(QSize(350, 0));
  scrollArea->setMaximumSize(QSize(350, kNoLimit));
  scrollArea->setFrameShape(QFrame::NoFrame);
  scrollArea->setWidgetResizable(true);

  scrollAreaWidgetContents = new QWidget();
  scrollAreaWidgetContents->setObjectName(QString::fromUtf8("scrollAreaWidgetContents"));
  scrollAreaWidgetContents->setGeometry(QRect(0, 0, 350, 667));

  comboBox = new QComboBox(scrollAreaWidgetContents);
  comboBox->setObjectName(QString::fromUtf8("comboBox"));
  comboBox->setGeometry(QRect(149, 0, 171, 25));
  SetPolicy(comboBox, QSizePolicy::Fixed, QSizePolicy::Fixed);
  comboBox->setMinimumSize(QSize(171, 25));
  comboBox->setMaximumSize(QSize(171, 25));

  CodeType_Label = new QLabel(scrollAreaWidgetContents);
  CodeType_Label->setObjectName(QString::fromUtf8("CodeType_Label"));
  CodeType_Label->setGeometry(QRect(0, 0, 150, 25));
  SetPolicy(CodeType_Label, QSizePolicy::Fixed, QSizePolicy::Preferred);
  CodeType_Label->setMinimumSize(QSize(150, 25));
  CodeType_Label->setMaximumSize(QSize(150, 25));

  scrollArea->setWidget(scrollAreaWidgetContents);
  verticalLayout->addWidget(scrollArea);

  verticalSpacer = new QSpacerItem(20, 50, QSizePolicy::Minimum, QSizePolicy::Fixed);
  verticalLayout->addItem(verticalSpacer);

  horizontalLayout_2 = new QHBoxLayout();
  horizontalLayout_2->setObjectName(QString::fromUtf8("horizontalLayout_2"));

  horizontalSpacer_2 = new QSpacerItem(40, 20, QSizePolicy::Expanding, QSizePolicy::Minimum);
  horizontalLayout_2->addItem(horizontalSpacer_2);

  horizontalLayout = new QHBoxLayout();
  horizontalLayout->setSpacing(5);
  horizontalLayout->setObjectName(QString::fromUtf8("horizontalLayout"));
  horizontalLayout->setContentsMargins(-1, -1, 30, 2);

  OK_BOTTON = new QPushButton(Dialog);
  OK_BOTTON->setObjectName(QString::fromUtf8("OK_BOTTON"));
  OK_BOTTON->setMinimumSize(QSize(75, 30));
  OK_BOTTON->setMaximumSize(QSize(75, 30));
  horizontalLayout->addWidget(OK_BOTTON);

  CANCEL_BOTTON = new QPushButton(Dialog);
  CANCEL_BOTTON->setObjectName(QString::fromUtf8("CANCEL_BOTTON"));
  CANCEL_BOTTON->setMinimumSize(QSize(75, 30));
  CANCEL_BOTTON->setMaximumSize(QSize(75, 30));
  horizontalLayout->addWidget(CANCEL_BOTTON);

  horizontalLayout_2->addLayout(horizontalLayout);
  verticalLayout->addLayout(horizontalLayout_2);
  horizontalLayout_3->addLayout(verticalLayout);
  // The preview takes all the width the side panel leaves.
  horizontalLayout_3->setStretch(0, 1);
  gridLayout->addLayout(horizontalLayout_3, 0, 0, 1, 1);

  retranslateUi(Dialog);
  QMetaObject::connectSlotsByName(Dialog);
}

void KivLUTSettingForm::retranslateUi(QDialog* Dialog) {
  Dialog->setWindowTitle(QCoreApplication::translate("Dialog", "KivLUTSettingDlg", nullptr));
  CodeType_Label->setText(QCoreApplication::translate("Dialog", "CodeType", nullptr));
  OK_BOTTON->setText(QCoreApplication::translate("Dialog", "OK", nullptr));
  CANCEL_BOTTON->setText(QCoreApplication::translate("Dialog", "CANCEL", nullptr));
}

}  // namespace KIVMV
