#ifndef KIVMV_KIV_PLATFORM_STATUS_H_
#define KIVMV_KIV_PLATFORM_STATUS_H_

namespace KIVMV {

// Status codes returned by the platform services.
inline constexpr long kKivPlatformOk = 0;
inline constexpr long kKivPlatformNullArgument = 1;
inline constexpr long kKivPlatformIoError = 2;

}  // namespace KIVMV

#endif  // KIVMV_KIV_PLATFORM_STATUS_H_
