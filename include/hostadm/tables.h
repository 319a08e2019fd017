/* SPDX-License-Identifier: MIT */
/*
 * Field-wise lookup, replacement and removal of lines in text tables such as /etc/vfstab, /etc/dfs/dfstab and
 * /etc/hosts, and the question whether a name means this host.
 *
 * A caller makes a column list (new_col_list), declares the columns of one entry (new_column), hands the
 * list to get_db_entry, replace_db_entry or remove_db_entry as often as it likes, and releases it
 * (free_col_list). Lists share nothing: two threads may work with two lists, also on one table.
 *
 * The table
 * - Lines end with a line feed, or with carriage return and line feed, which is then no part of the last
 *   field. A last line without an ending is a line like the others. Lines may be of any length and hold any
 *   bytes.
 * - A line is split into fields at runs of separator characters; separators at its beginning and end are
 *   skipped.
 * - A line whose first field begins with the comment mark is a comment and is never matched, with one
 *   exception: when the match value of column 0 itself begins with the mark, lines that begin with exactly
 *   this word are matched (a share that is commented out with "#share").
 * - Behind the last declared column a field that begins with the mark, outside of quotes, begins a comment
 *   that reaches to the end of the line. It is no field, and it stays on the line when the entry before it is
 *   replaced. Up to the last declared column the mark begins no comment: in "/dev/a #x /mnt ufs 2 yes rw"
 *   "/mnt" stands at position 2. Columns that are counted from the end and have no match value may be
 *   missing; the comment may then begin so much earlier.
 *
 * An entry
 * - A line is the entry when the field at each column that has a match value equals that value, byte for
 *   byte.
 * - A column whose `position`, `a` and `b` are equal stands at that field, counted from 0. Otherwise
 *   optional columns may be missing before it and it is counted from the end: the last declared column is
 *   the line's last field, the one before it the last field but one.
 * - Of several lines that are the entry only the first is read, replaced or removed: tables may name one
 *   key twice and mean it (two temporary file systems on "swap").
 *
 * An edit
 * - The table is replaced as a whole: at every moment, also after a power cut, it holds the old or the new
 *   text, and after a failure the old one. All other lines keep every byte. Mode, owner and extended
 *   attributes are kept; symbolic links are followed and stay. hostadm/table_edit.hpp says how this is
 *   done.
 * - Editors of one table, in this process or others, exclude each other. One waits for the others for at
 *   most 30 seconds. Those of root do so where no other user can hold them up.
 * - An edit that would change nothing leaves the file alone, with its inode and its times.
 *
 * Statuses: 0 done; -2 no such line, or no such table; -26 the table is locked by somebody else; any other
 * negative value is minus an errno value. Edits return, besides those named with each function:
 *   -EISDIR    the table is a folder                     -ENOTSUP   it is a device, pipe or socket
 *   -EACCES    no permission for the file or its folder  -EROFS     its file system is mounted read-only
 *   -EPERM     the file is immutable, or its owner or attributes could not be kept
 *   -EBUSY     the table is a mount point (a file bind-mounted in place) and cannot be replaced
 *   -EAGAIN    somebody who takes no lock kept writing the table
 *   -ENOSPC, -EDQUOT, -EIO, -ENOMEM, -ELOOP, -ENAMETOOLONG ... as the system says
 */
#ifndef HOSTADM_TABLES_H
#define HOSTADM_TABLES_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

typedef struct col_list col_list;

/*
 * Makes an empty column list in *list, which the caller releases with free_col_list. The strings are copied.
 *
 * separators    the characters between fields, at least one and no line break; the first of them is written
 *               between the fields of new lines
 * comment       the mark that begins a comment; NULL: "#"; "": the table has no comments
 * comment_text  words about the entry, or NULL. Not written: an entry's line holds its columns and nothing
 *               else (the description of a share is a column of its own).
 *
 * 0; -EINVAL: list or separators NULL, separators empty or holding a line break; -ENOMEM. *list is set on 0
 * only.
 */
int new_col_list(col_list **list, const char *separators, const char *comment, const char *comment_text);

/*
 * Declares a column. Columns may be declared in any order; their positions order them.
 *
 * position, a, b  all equal: the field at this position; otherwise counted from the end of the line, as
 *                 said above
 * match           the value by which the entry is found; NULL: the column takes no part. No field is "".
 * value           the value to write; NULL: the match value (lists for reading and removing need none)
 * flag            not 0: the value takes the rest of the line, one or more fields (a host's names), and may
 *                 end with a comment, which then replaces the old one. For the last column only.
 *
 * 0; -EINVAL: list NULL, position negative or declared already; -ENOMEM.
 */
int new_column(col_list *list, int position, int a, int b, const char *match, const char *value, int flag);

/* Releases a column list. NULL is no harm. */
void free_col_list(col_list *list);

/*
 * Copies the entry's line as it stands, without its line ending, into buffer[size], with a NUL behind it.
 * Takes no lock and waits for nobody: the table is whole at any moment.
 *
 * 0; -2; -EINVAL: an argument NULL, size not positive, or no column has a match value; -ERANGE: the line
 * and its NUL do not fit, try again with more; -EILSEQ: the line holds a NUL byte, which a string cannot.
 * The buffer is untouched but on 0.
 */
int get_db_entry(const char *table, col_list *list, char *buffer, int size);

/*
 * Writes the columns' values, in the order of their positions with the first separator between them, over
 * the entry's line, or as a new last line when there is no such entry (a last line without an ending gets
 * one first). A table that does not exist is made, with mode 0644, and so is its folder (0755), but not the
 * folder's folder.
 *
 * mode  3 or 11; both mean what is said here.
 *
 * 0; -26; -2: the folder of the folder does not exist; -EINVAL: an argument NULL, another mode, no column
 * with a match value, positions that do not run from 0 without gaps, a column with neither value nor match,
 * or values that would not be read back as they were given: empty or blank ones, values with a line break,
 * of column 0 (unless its match has it too) and of a rest of the line with the comment mark at their
 * beginning, and values with a
 * separator, which only a column with a flag and a column that is counted from the end and has no match
 * value (the description of a share) may hold. Nothing is written then.
 */
int replace_db_entry(const char *table, col_list *list, int mode);

/*
 * Removes the entry's line; values do not matter.
 *
 * 0; -2; -26; -EINVAL: an argument NULL, or no column has a match value.
 */
int remove_db_entry(const char *table, col_list *list);

/*
 * 1 when the name or address means this host, 0 otherwise (also for NULL and ""). This host are:
 * "localhost"; its host name, in full and up to the first dot; every loopback address (127.0.0.0/8, ::1)
 * and every address of its network interfaces; every name and alias that /etc/hosts gives to one of these
 * addresses. Names are compared without regard to case. No name service and no network is asked.
 */
int is_local_host(const char *host);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
