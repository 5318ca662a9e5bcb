#ifndef KIVMV_KIV_PLATFORM_STATUS_H_
#define KIVMV_KIV_PLATFORM_STATUS_H_

namespace KIVMV {

// Status codes returned by the platform services.
inline constexpr long kKivPlatformOk = 0;
inline constexpr long kKivPlatformNullArgument = 1;
inline constexpr long kKivPlatformIoError = 2;
// An argument the operation cannot work with: a range image whose pixel matrix does not match its
// size and pixel type, a pixel count beyond int, or a non-finite resolution or offset.
inline constexpr long kKivPlatformInvalidArgument = 3;
// A pixel-type code outside the seven KivDataType values.
inline constexpr long kKivPlatformUnsupportedType = 4;
// Memory for the result could not be allocated.
inline constexpr long kKivPlatformOutOfMemory = 5;
// Any other failure inside an operation; the operation caught it instead of letting it escape.
inline constexpr long kKivPlatformInternalError = 6;

}  // namespace KIVMV

#endif  // KIVMV_KIV_PLATFORM_STATUS_H_
