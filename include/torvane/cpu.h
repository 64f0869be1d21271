/*
 * CPU load
 *
 * The load of the CPUs between two samples.
 */
#ifndef TORVANE_CPU_H
#define TORVANE_CPU_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* The first line of "/proc/stat": time that all CPUs have spent since start-up, in clock ticks. */
typedef struct cpu_sample {
  uint64_t user, nice, system, idle, iowait, irq, softirq, steal;
} cpu_sample;

/*
 * The counters as they are now, to be released with free; those that the kernel does not tell are 0.
 *
 * Returns null when "/proc/stat" cannot be opened or read, memory runs out, or its first line does not contain "cpu".
 * When it opened but could not be read, or had no "cpu", the file STAYS OPEN: a program that gets null again and again
 * runs out of descriptors. Any thread.
 */
cpu_sample *cpu_utility_get_stat(void);

/*
 * The share of the time between two samples in which the CPUs were not idle, in percent: 0 to 100. Waiting for devices
 * (iowait) counts as load. Samples without a tick between them give NaN. The differences are unsigned: a counter that
 * stepped back gives a huge negative number, and samples in the wrong order are not noticed. Returns -1.0 when one is
 * null. Any thread.
 */
float cpu_utility_calculate(const cpu_sample *prev, const cpu_sample *cur);

TORVANE_END

#endif
