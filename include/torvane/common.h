/*
 * Common macros
 *
 * This header holds the macros that open and close every header of the library. A program need not include it: it
 * comes with <torvane.h> and with the header of each service.
 */
#ifndef TORVANE_COMMON_H
#define TORVANE_COMMON_H

/* Give declarations C linkage when a C++ compiler reads them. TORVANE_BEGIN and TORVANE_END contain them. */
#ifdef __cplusplus
#define TORVANE_EXTERN_C_BEGIN extern "C" {
#define TORVANE_EXTERN_C_END }
#else
#define TORVANE_EXTERN_C_BEGIN
#define TORVANE_EXTERN_C_END
#endif

#if defined(__GNUC__)
/*
 * Opens the declarations of a header. The library is built with hidden symbols: only what its headers declare between
 * TORVANE_BEGIN and TORVANE_END is visible to programs.
 */
#define TORVANE_BEGIN _Pragma("GCC visibility push(default)") TORVANE_EXTERN_C_BEGIN
/* Closes the declarations that TORVANE_BEGIN opened. */
#define TORVANE_END TORVANE_EXTERN_C_END _Pragma("GCC visibility pop")
/*
 * Lets the compiler check the values that are passed for a printf format.
 *
 *   format_at  position of the format among the function's parameters; the first one is 1
 *   values_at  position of the "..." of the same function
 */
#define TORVANE_PRINTF(format_at, values_at) __attribute__((format(printf, format_at, values_at)))
#else
#define TORVANE_BEGIN TORVANE_EXTERN_C_BEGIN
#define TORVANE_END TORVANE_EXTERN_C_END
#define TORVANE_PRINTF(format_at, values_at)
#endif

#endif
