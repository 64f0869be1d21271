/*
 * CPU load
 *
 * The load of the CPUs between two samples of the kernel's counters, all CPUs together.
 *
 *   cpu_sample *before = cpu_utility_get_stat();
 *   sleep(1);
 *   cpu_sample *after = cpu_utility_get_stat();
 *   printf("%.0f %%\n", cpu_utility_calculate(before, after));   // -1 when a sample is missing
 *   free(before);
 *   free(after);
 *
 * Any thread may call the functions. They trace nothing.
 */
#ifndef TORVANE_CPU_H
#define TORVANE_CPU_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* The first line of "/proc/stat": the time that all CPUs have spent since start-up, in clock ticks. */
typedef struct cpu_sample {
  uint64_t user, nice, system, idle, iowait, irq, softirq, steal;
} cpu_sample;

/*
 * Reads the counters as they are now. Counters that the kernel does not have are 0.
 *
 * Returns the sample, which the caller releases with free; or null in these cases:
 *   - "/proc/stat" cannot be opened
 *   - it cannot be read, or its first line does not contain "cpu"; then the file STAYS OPEN, so a program that gets
 *     null again and again runs out of descriptors
 *   - memory runs out
 */
cpu_sample *cpu_utility_get_stat(void);

/*
 * Returns the share of the time between two samples in which the CPUs were not idle, in percent: 0 to 100. Waiting for
 * devices (iowait) counts as load.
 *
 *   prev  the earlier sample
 *   cur   the later one
 *
 * Returns instead:
 *   -1.0                    a sample is null
 *   NaN                     no tick lies between the samples
 *   a huge negative number  a counter stepped back, because the differences are unsigned
 *
 * Samples in the wrong order are not noticed.
 */
float cpu_utility_calculate(const cpu_sample *prev, const cpu_sample *cur);

TORVANE_END

#endif
