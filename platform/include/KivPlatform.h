#ifndef KIVMV_KIV_PLATFORM_H_
#define KIVMV_KIV_PLATFORM_H_

// Everything the platform layer offers.
#include "Kiv3DArray.h"
#include "Kiv3DDataConvert.h"
#include "Kiv3DDataOperation.h"
#include "KivColor.h"
#include "KivColorArray.h"
#include "KivConfiguration.h"
#include "KivDataType.h"
#include "KivFastLoggerPrivate.h"
#include "KivImage.h"
#include "KivMultiLanguage.h"
#include "KivPlatformStatus.h"
#include "KivRangeImage.h"
#include "KivVar.h"
#include "KivVector3d.h"

#endif  // KIVMV_KIV_PLATFORM_H_
