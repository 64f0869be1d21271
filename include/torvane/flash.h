/*
 * Flash partitions
 *
 * Numbers, devices and sizes of flash (MTD) partitions by name.
 */
#ifndef TORVANE_FLASH_H
#define TORVANE_FLASH_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* What is asked about a flash partition, and what is written for it. */
enum {
  MTD_QUERY_ALL = 0,        /* an mtd_query, 104 bytes */
  MTD_QUERY_DEV = 1,        /* text "/dev/mtdN" */
  MTD_QUERY_BLOCK_DEV = 2,  /* text "/dev/mtdblockN" */
  MTD_QUERY_NAME = 3,       /* text "mtdN" */
  MTD_QUERY_BLOCK_NAME = 4, /* text "mtdblockN" */
  MTD_QUERY_NUM = 5,        /* uint32_t: N */
  MTD_QUERY_SIZE = 6        /* uint32_t: size in bytes */
};

typedef struct mtd_query {
  char dev[32];        /* "/dev/mtdN" */
  char block_dev[32];  /* "/dev/mtdblockN" */
  char name[16];       /* "mtdN" */
  char block_name[16]; /* "mtdblockN", cut to 15 characters for numbers above 9999999 */
  uint32_t num;        /* N */
  uint32_t size;       /* bytes */
} mtd_query;

/* The kernel's record of a partition; <mtd/mtd-user.h> declares it. */
struct mtd_info_user;

/*
 * Finds the number of a partition with "cat /proc/mtd | grep NAME | awk '{printf substr($1,4,1)}'" (_system_read, which
 * see for what happens besides).
 *
 *   name  a pattern of grep and a word of the shell, as it stands: never text that was not checked
 *   num   receives the number
 *
 * The command takes ONE digit of every line in which the name occurs anywhere. So partitions 10 and above are not found
 * by their number (12 reads as 1); a name that is part of another's also finds that one, and the digits of all matches
 * run together into one number (partitions 2 and 5 give 25); at most 15 of them are read, and a number above 2147483647
 * reads as that one. Choose names of which none contains another. To ask for the exact name, its quotes included, pass
 * the pattern with its shell quotes: "'\"kernel\"'".
 *
 * What cat and grep complain of goes to standard error.
 *
 * Returns 1; 0, with `num` left alone, when nothing was found, the command cannot be run (one too long to run is traced
 * by _system_read), an argument is null, or what was found has no digit: then traces "string(%s) to digital error!!\n".
 */
int parseMtdNumByCmd(const char *name, uint32_t *num);

/*
 * Asks the kernel about the partition `*num`: opens "/dev/mtdN" for reading and writing and closes it again.
 *
 * Returns 1 with `info` filled; or 0, printing on standard output "open mtd device fail!! reason:%s\n" or "ioctl
 * error!! fd:%d, reason:%s\n". The reason is always the C library's text for error number -1. A null argument gives 0
 * and prints nothing.
 */
int getMtdInfo(const uint32_t *num, struct mtd_info_user *info);

/*
 * Writes one item about a partition to `out`.
 *
 *   info  from getMtdInfo; its size is all that is used
 *   size  for texts: the longest that is taken, WITHOUT its terminator, so that `out` needs `size` + 1 bytes. It is not
 *         looked at for the other kinds: `out` has room for an mtd_query or a uint32_t, in any alignment
 *   kind  MTD_QUERY_*
 *   num   the partition's number
 *
 * Returns 1; or 0 with `out` left alone: for a longer text, traces "over size!! querySize:%d > outputSize:%d" with both
 * lengths and NO newline; for another kind, "none case!!\n". A null argument gives 0 without a trace.
 */
int setQueryMtdInfo(const struct mtd_info_user *info, void *out, uint32_t size, uint32_t kind, const uint32_t *num);

/*
 * All three in one: the number of the partition `name`, the kernel's record, one item of it to `out`. `size` and `kind`
 * as setQueryMtdInfo takes them; the device is opened for every kind.
 *
 * Returns 1; or 0, after what the failed step says itself, tracing "Null Input\n" (null `name` or `out`), "Parse mtd
 * device name fail!!\n" or "query mtd info fail!!\n"; nothing of its own when getMtdInfo fails.
 */
int getMtdInfoByName(const char *name, void *out, uint32_t size, uint32_t kind);

TORVANE_END

#endif
