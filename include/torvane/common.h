/*
 * What every header of the library begins and ends with.
 *
 * A program includes <torvane.h>, or the headers of the services that it uses; this one comes with each of them.
 */
#ifndef TORVANE_COMMON_H
#define TORVANE_COMMON_H

#ifdef __cplusplus
#define TORVANE_EXTERN_C_BEGIN extern "C" {
#define TORVANE_EXTERN_C_END }
#else
#define TORVANE_EXTERN_C_BEGIN
#define TORVANE_EXTERN_C_END
#endif

#if defined(__GNUC__)
/* The library is built with hidden symbols: what its headers declare is visible, and nothing else. */
#define TORVANE_BEGIN _Pragma("GCC visibility push(default)") TORVANE_EXTERN_C_BEGIN
#define TORVANE_END TORVANE_EXTERN_C_END _Pragma("GCC visibility pop")
/* Lets the compiler check the values of a printf format. Positions count from 1. */
#define TORVANE_PRINTF(format_at, values_at) __attribute__((format(printf, format_at, values_at)))
#else
#define TORVANE_BEGIN TORVANE_EXTERN_C_BEGIN
#define TORVANE_END TORVANE_EXTERN_C_END
#define TORVANE_PRINTF(format_at, values_at)
#endif

#endif
