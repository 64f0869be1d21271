/*
 * Disks
 *
 * Size and free space of file systems.
 */
#ifndef TORVANE_DISK_H
#define TORVANE_DISK_H

#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/* One entry of a directory, and the file system that it is on. */
typedef struct disk_info {
  char path[512]; /* "DIR/NAME", cut to 511 characters */
  char name[256]; /* name of the entry */
  uint64_t total; /* size, bytes */
  uint64_t free;  /* free space, bytes, with what is kept back for the superuser */
  list_node list; /* in the caller's list */
} disk_info;

/*
 * Appends a record to `list` for every entry of the directory `dir` whose name does not begin with ".", in the order in
 * which the directory gives them. An entry on which nothing is mounted tells about the file system that it is on. What
 * is in the list already stays: free it between two scans.
 *
 * Traces "Cannot statvfs %s\n" with the path, and leaves the entry out, when its file system cannot be asked (a
 * dangling symbolic link); paths are cut to 1023 characters. An entry for which memory runs out is left out without a
 * word.
 *
 * Returns 0; also when reading the directory fails half-way, which traces "Error occuried when readdir_r (%d)\n" with
 * the error number. Returns 1, tracing "dir_path is null\n", "list head is null\n" or "Cannot open dir: %s\n". Any
 * thread, on a list of its own.
 */
int vemta_get_disk_info(const char *dir, list_node *list);

/* Unlinks and frees every record of `list`, which is empty then. Null is ignored. */
void vemta_free_disk_info(list_node *list);

TORVANE_END

#endif
