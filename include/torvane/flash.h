/*
 * Flash partitions
 *
 * The functions give the number, device names and size of a flash (MTD) partition by its name in "/proc/mtd". Most
 * programs call getMtdInfoByName, which does the three steps in one: parseMtdNumByCmd finds the partition's number,
 * getMtdInfo asks the kernel about that partition, and setQueryMtdInfo writes the item that is wanted.
 *
 *   char device[32];
 *   if (getMtdInfoByName("'\"kernel\"'", device, sizeof(device) - 1, MTD_QUERY_BLOCK_DEV))   // "/dev/mtdblock2"
 *     ...
 *
 * All four return 1 for success and 0 for failure. The name goes into a shell command, so read what parseMtdNumByCmd
 * says of it. The functions keep nothing between two calls; any thread may call them.
 */
#ifndef TORVANE_FLASH_H
#define TORVANE_FLASH_H

#include <stdint.h>

#include "torvane/common.h"

TORVANE_BEGIN

/* The items that can be asked about a partition, and what is written for each. */
enum {
  MTD_QUERY_ALL = 0,        /* an mtd_query, 104 bytes */
  MTD_QUERY_DEV = 1,        /* text "/dev/mtdN" */
  MTD_QUERY_BLOCK_DEV = 2,  /* text "/dev/mtdblockN" */
  MTD_QUERY_NAME = 3,       /* text "mtdN" */
  MTD_QUERY_BLOCK_NAME = 4, /* text "mtdblockN" */
  MTD_QUERY_NUM = 5,        /* uint32_t: N */
  MTD_QUERY_SIZE = 6        /* uint32_t: size in bytes */
};

/* Everything about one partition, as MTD_QUERY_ALL writes it. The texts are terminated. */
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
 * Finds the number of a partition by its name.
 *
 *   name  the partition's name. It becomes a pattern of grep and a word of the shell as it stands, so never pass text
 *         that was not checked
 *   num   receives the number, or 0 when what was found has no digit; other failures leave it alone
 *
 * Returns:
 *   1  found
 *   0  nothing was found, what was found has no digit, the command cannot be run, or an argument is null
 *
 * What was found without a digit traces "string(%s) to digital error!!\n" with it. Other failures trace nothing here,
 * but _system_read (torvane/process.h) traces a command that is too long to run.
 *
 * The function runs "cat /proc/mtd | grep NAME | awk '{printf substr($1,4,1)}'" with _system_read, which says what
 * else happens while a command runs. What cat and grep complain of goes to standard error.
 *
 * The command takes ONE digit of every line in which the name occurs anywhere. This has four consequences:
 *   - partitions 10 and above are not found by their number: 12 reads as 1
 *   - a name that is part of another partition's name finds that partition too
 *   - the digits of all matches run together into one number: partitions 2 and 5 give 25
 *   - at most 15 digits are read, and a number above 2147483647 reads as 2147483647
 * So choose names of which none contains another. To ask for the exact name, put its quotes into the pattern and quote
 * these for the shell: "'\"kernel\"'".
 */
int parseMtdNumByCmd(const char *name, uint32_t *num);

/*
 * Asks the kernel about a partition. Opens "/dev/mtdN" for reading and writing, and closes it again.
 *
 *   num   the partition's number
 *   info  receives the kernel's record
 *
 * Returns:
 *   1  `info` is filled
 *   0  the device cannot be opened, it does not answer, or an argument is null
 *
 * A device that cannot be opened prints "open mtd device fail!! reason:%s\n" on standard output, and one that does not
 * answer prints "ioctl error!! fd:%d, reason:%s\n". The reason is always the C library's text for error number -1. A
 * null argument prints nothing.
 */
int getMtdInfo(const uint32_t *num, struct mtd_info_user *info);

/*
 * Writes one item about a partition to a buffer.
 *
 *   info  the record of getMtdInfo; only its size is used
 *   out   receives the item, in any alignment. A text needs `size` + 1 bytes; an mtd_query and a uint32_t need their
 *         own size, whatever `size` says
 *   size  for texts: the longest text that is taken, in bytes WITHOUT its terminator; the other kinds ignore it
 *   kind  MTD_QUERY_*
 *   num   the partition's number
 *
 * Returns:
 *   1  written
 *   0  the text is longer than `size`, the kind is unknown, or a pointer that the kind uses is null; `out` is left
 *      alone
 *
 * A kind uses only some of the pointers, and the others may be null. Every kind uses `out`; MTD_QUERY_ALL and
 * MTD_QUERY_SIZE use `info`; all but MTD_QUERY_SIZE use `num`.
 *
 * A text that is too long traces "over size!! querySize:%d > outputSize:%d" with both lengths and NO newline. An
 * unknown kind traces "none case!!\n", whatever the pointers are. A null pointer traces nothing.
 */
int setQueryMtdInfo(const struct mtd_info_user *info, void *out, uint32_t size, uint32_t kind, const uint32_t *num);

/*
 * Writes one item about the partition with a given name to a buffer. Finds its number (parseMtdNumByCmd), asks the
 * kernel (getMtdInfo), and writes the item (setQueryMtdInfo). The device is opened for every kind of item.
 *
 *   name  the partition's name: a pattern of grep and a word of the shell, of which parseMtdNumByCmd tells the limits
 *   out   receives the item, in any alignment. A text needs `size` + 1 bytes; an mtd_query and a uint32_t need their
 *         own size, whatever `size` says
 *   size  for texts: the longest text that is taken, in bytes WITHOUT its terminator; the other kinds ignore it
 *   kind  MTD_QUERY_*
 *
 * Returns:
 *   1  written
 *   0  a step failed, or `name` or `out` is null; `out` is left alone
 *
 * A failed step first traces or prints its own message. Then this function traces "Parse mtd device name fail!!\n" when
 * the number was not found, "query mtd info fail!!\n" when the item was not written, and nothing of its own when
 * getMtdInfo failed. A null argument traces "Null Input\n".
 */
int getMtdInfoByName(const char *name, void *out, uint32_t size, uint32_t kind);

TORVANE_END

#endif
