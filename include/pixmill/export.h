/* Symbol visibility of the Pixmill library's exported functions. */
#ifndef PIXMILL_EXPORT_H
#define PIXMILL_EXPORT_H

#if defined(_WIN32)
#if defined(PIXMILL_BUILDING)
#define PIXMILL_API __declspec(dllexport)
#else
#define PIXMILL_API __declspec(dllimport)
#endif
#else
#define PIXMILL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define PIXMILL_EXTERN_C_BEGIN extern "C" {
#define PIXMILL_EXTERN_C_END }
#else
#define PIXMILL_EXTERN_C_BEGIN
#define PIXMILL_EXTERN_C_END
#endif

#endif /* PIXMILL_EXPORT_H */
