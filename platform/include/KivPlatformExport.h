#ifndef KIVMV_KIV_PLATFORM_EXPORT_H_
#define KIVMV_KIV_PLATFORM_EXPORT_H_

// The platform libraries are built with hidden visibility, so only what carries this mark is
// exported: the classes and functions of the installed headers, and nothing of the internals.
#define KIVMV_PLATFORM_API __attribute__((visibility("default")))

#endif  // KIVMV_KIV_PLATFORM_EXPORT_H_
