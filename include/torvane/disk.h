/*
 * Disks
 *
 * Size and free space of the file systems under a directory, such as the one in which USB disks are mounted. The caller
 * owns a list; vemta_get_disk_info appends a record for every entry of the directory, and vemta_free_disk_info frees
 * them all.
 *
 *   list_node disks = {&disks, &disks};   // an empty list
 *   vemta_get_disk_info("/mnt", &disks);
 *   for (list_node *node = disks.next; node != &disks; node = node->next) {
 *     const disk_info *disk = (const disk_info *)((char *)node - offsetof(disk_info, list));
 *     ...
 *   }
 *   vemta_free_disk_info(&disks);
 *
 * Any thread may call the functions, on a list of its own.
 */
#ifndef TORVANE_DISK_H
#define TORVANE_DISK_H

#include <stdint.h>

#include "torvane/common.h"
#include "torvane/list.h"

TORVANE_BEGIN

/*
 * One entry of a directory, and the file system that it is on. Both sizes are the file system's counts of blocks times
 * its f_bsize (statvfs(3)).
 */
typedef struct disk_info {
  char path[512]; /* "DIR/NAME", cut to 511 characters */
  char name[256]; /* name of the entry */
  uint64_t total; /* size, bytes */
  uint64_t free;  /* free space, bytes, with what is kept back for the superuser */
  list_node list; /* in the caller's list */
} disk_info;

/*
 * Appends a record to a list for every entry of a directory whose name does not begin with ".".
 *
 *   dir   path of the directory; with the name of an entry, paths are cut to 1023 characters
 *   list  head of the caller's list. What is in it already stays, so free the list between two scans
 *
 * Returns:
 *   0  the directory was read, or reading it failed half-way
 *   1  the directory cannot be opened, or an argument is null; the list is unchanged
 *
 * The records follow in the order in which the directory gives its entries. An entry on which nothing is mounted tells
 * about the file system that it is on.
 *
 * An entry whose file system cannot be asked (a dangling symbolic link) is left out and traces "Cannot statvfs %s\n"
 * with its path. An entry for which memory runs out is left out without a word.
 *
 * A directory that cannot be read to its end traces "Error occuried when readdir_r (%d)\n" with the error number.
 * A null `dir` traces "dir_path is null\n", a null `list` "list head is null\n", and a directory that cannot be opened
 * "Cannot open dir: %s\n".
 */
int vemta_get_disk_info(const char *dir, list_node *list);

/* Unlinks and frees every record of the list, which is empty then. A null list is ignored. */
void vemta_free_disk_info(list_node *list);

TORVANE_END

#endif
