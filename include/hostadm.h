/* SPDX-License-Identifier: MIT */
/*
 * hostadm: keeps the network-boot side of a server in order.
 *
 * What holds for every function here:
 *
 * 1. Statuses. 0 means done unless a function says otherwise. A failure is recorded with the administration
 *    framework (adm_err_setf); "error N" below names the recorded code, whose text is system_msgs[N]. Some
 *    functions return another number than the code they record, and some end the process; each says so.
 * 2. Strings. Arguments are NUL-terminated and stay the caller's. A `char *` argument (not `const`) must be
 *    writable, because the function changes it. A string that the caller must free comes from malloc. A
 *    result that points into a buffer of the library is valid until the next call of the same function.
 * 3. NULL. An argument may be NULL only where its function says so.
 * 4. Words given to the shell. Paths, options and names are placed into shell commands as they are; the
 *    caller has checked them. Methods get this from the framework, which checks every argument before a
 *    method runs (in C++ and shell; one that is written in C alone checks its own, see framework.h).
 * 5. Threads. None: the library keeps process-wide buffers and is used by one thread of one method process.
 */
#ifndef HOSTADM_H
#define HOSTADM_H

#include <stdarg.h>

#include "hostadm/framework.h"

/* The version of this header. Programs built against one of the same major version go on working with the
   libraries of a later one. */
#define HOSTADM_VERSION_MAJOR 1
#define HOSTADM_VERSION_MINOR 0
#define HOSTADM_VERSION_PATCH 0
/* One number to compare with: HOSTADM_VERSION_NUMBER >= 10200 means 1.2.0 or later. */
#define HOSTADM_VERSION_NUMBER                                                                               \
    (HOSTADM_VERSION_MAJOR * 10000 + HOSTADM_VERSION_MINOR * 100 + HOSTADM_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Client kinds: what a client keeps on disks of its own. */
enum {
    HOSTADM_DISKLESS = 1,
    HOSTADM_DATALESS = 2,
    HOSTADM_DISKFULL = 3,
    HOSTADM_CACHELET = 4,
    HOSTADM_OS_SERVER = 5,
    HOSTADM_UNKNOWN = 99
};

/* Take-effect modes: on the running system, in the boot-time table, or both. */
enum { HOSTADM_NOWONLY = 1, HOSTADM_BOOTONLY = 2, HOSTADM_NOWANDBOOT = 3 };

/* Name services, as bits of a mask. */
enum { HOSTADM_UFS = 1, HOSTADM_NIS = 2, HOSTADM_NIS_PLUS = 4, HOSTADM_ALL = 7 };

/* Results of the daemon checks. */
enum {
    HOSTADM_DAEMON_RUNNING = 1,
    HOSTADM_DAEMON_NOT_RUNNING = 2,
    HOSTADM_DAEMON_NO_PROCFS = 3,
    HOSTADM_DAEMON_DEFUNCT = 4
};

/* ---- types ---- */

/* A device creation held back until the tape devices have been made (see makedevs). */
struct hold_dev_record {
    const char *directory;   /* where it is to run */
    const char *device_name; /* what to make; NULL: nothing is held back */
};

struct sharefs_entry {
    char *path;
    char *options;
    struct sharefs_entry *next;
};

struct client_node {
    char *name;
    char *boottype;
    char *root_path;
    struct client_node *next;
};

struct package_source {
    struct package_source *next;
    const char *path;
};

/* What set_swmgmt_errors is told. A string that is NULL counts as empty. */
struct swmgmt_error {
    int kind;           /* 1 to 9 */
    const void *detail; /* of kinds 1, 2 and 9: one of the records below */
};

/* Kind 1: a file system that is short of something. */
struct swmgmt_space {
    struct swmgmt_space *next; /* NULL: the last one */
    const char *name;          /* of the file system */
    const char *label;         /* what stands before the name */
    int available_kb;          /* not looked at */
    int required_kb;
    int no_inodes; /* not 0: inodes are short, not space */
};

/* Kind 2: where there is no free space, in two pieces. */
struct swmgmt_no_space {
    const char *second; /* the piece that is told last */
    const char *first;
};

/* Kind 9: an installed package that does not match. */
struct swmgmt_revision {
    const char *package;
    const char *arch;
    const char *installed; /* its revision */
    const char *required;  /* the revision that it should have */
};

/* ---- data objects ---- */

/* Both NULL at first. Set by the method, whose strings they stay; the library only reads it. */
extern struct hold_dev_record hold_dev;
/*
 * The list of current shares (get_sharefs_ents): its first entry, and a cursor. Both are NULL when the list
 * is empty. A caller may walk the list and move the cursor; entries and their strings are the library's.
 */
extern struct sharefs_entry *sfs_top;
extern struct sharefs_entry *sfs_current;

/* ---- shell commands and formatted strings ---- */

/*
 * Runs a shell command, waits for it and records what it said. The shell does not expand file names in it,
 * and its standard error counts as output. Returns 0 when the command exited with status 0, otherwise 1.
 *
 * The output as it is recorded begins with a newline. Then follow the lines, each with its newline and
 * without leading blanks (tabs stay). Of a line longer than 511 characters every 511 characters count as a
 * line. A NUL ends its line: the rest of it, with its newline, is dropped. An output of any size is kept
 * whole.
 *
 *   success, silent          0, nothing recorded
 *   success with output      0, error 92 with the text "METHOD:: OUTPUT"
 *   failure, silent          1, nothing recorded
 *   failure with output      1, error 92 (method, command, output)
 *   could not be started     1, error 91 (method, command, reason); too long for the system is such a reason
 *   could not be waited for  1, error 92 (method, command, reason), then with output error 92 as above
 *   memory is out            1, error 92 (method, command, reason); the command has ended, its output is lost
 */
int do_systemcmd(const char *command, const char *method);

/*
 * Format like printf into a new string of exactly the size that is needed, which the caller frees. Return the
 * number of characters, which is 0 for an empty text, too. On failure (memory is out, a value cannot be
 * formatted, the text would be longer than an int can count) *result is NULL and 0 is returned.
 * The first call opens /dev/null, which stays open until the process ends.
 */
int sprintf_alloc(char **result, const char *format, ...) HOSTADM_LIKE_PRINTF(2, 3);
int vsprintf_alloc(char **result, const char *format, va_list args) HOSTADM_LIKE_PRINTF(2, 0);

/* ---- file tree ---- */

/* Nothing here records an error. */

/*
 * Creates a directory and every missing parent, each with mode 02755 whatever the file-creation mask. The
 * string is cut during the call and whole again afterwards. Parents that were made before a failure stay.
 * Returns 0: made; -3: there was something of that name already, which is left as it is; -1: relative to a
 * directory that is gone, or empty; otherwise the errno of the failed mkdir (EEXIST for a path that ends in a
 * slash and whose parent had to be made: the directory is there).
 */
int mkdir_path(char *path);

/*
 * Makes a symbolic link that holds `target`, and the directory for it like mkdir_path. Returns 0 also when
 * the two strings are equal (nothing is done) or something of that name is there already (it is left as it
 * is, even a link that points elsewhere); -1 when the link could not be made, with the reason in errno.
 */
int mklink(const char *target, const char *link_path);

/*
 * Copies a file with cp(1), making the destination's directory first like mkdir_path. Both paths must be
 * absolute; they go to the shell as they are. Returns the status of system() for the copy, 0 when it is done;
 * -1 when a path is NULL or not absolute and nothing was run.
 */
int copyfile(const char *destination, const char *source);

/*
 * The same for a tree, with cp -r. When destination and source end in the same name, the destination string
 * itself is cut behind its last slash, so that the tree lands in that directory under its own name. Any other
 * destination that exists already gets the tree inside it, as cp does.
 */
int copytree(char *destination, const char *source);

/*
 * Makes devices: runs "./MAKEDEV DEVICE_NAME" in the directory, then returns to the old working directory. A
 * name that begins with "st8" means "st0". After a name that begins with "st0" the request in hold_dev is
 * made, too; a held-back name must not begin with "st0" or "st8" itself, or this never ends. Always returns
 * 0: a directory or script that is missing or fails is not told, and without the directory the script is
 * looked for in the working directory.
 */
int makedevs(const char *directory, const char *device_name);

/*
 * Sets the entry of a table whose lines begin with a key and a value, fields separated by blanks and tabs,
 * "#" beginning a comment (/etc/hosts, /etc/ethers): the line of that key is replaced, or one is added.
 * Returns 0 or the negative status of the table interface (tables.h).
 */
int set_hosts(const char *table, const char *key, const char *value);

/* ---- software-management errors, RPC probe ---- */

/*
 * Records why the software-management library failed, as exactly one error with a text of its own (not from
 * the message table):
 * - kind 1, error 24: no space; detail is a list of swmgmt_space (NULL: empty), of which the first 11 are
 *   told in at most 1,023 characters (a line that no longer fits is left out); error 8 when there is no
 *   memory for that
 * - kind 2, error 23: no free space; detail is a swmgmt_no_space, of which `first` is told first
 * - kinds 3 to 8, errors 25, 35, 34, 37, 36, 38: dependency, media, modification, wrong service, wrong
 *   operation, bad software description; detail is not looked at
 * - kind 9, error 39: the installed revision is not the required one; detail is a swmgmt_revision
 * - any other kind, error 26 with -1; error NULL, error 26 with -2
 */
void set_swmgmt_errors(const char *method, const struct swmgmt_error *error);

/*
 * Does a version of an RPC program answer on a host? Calls its null procedure over UDP, in a child process,
 * so that the alarm and the RPC library leave the caller alone. `timeout` is a number of seconds, for finding
 * the program's port and again for the call; with 0 or less nobody can answer.
 *
 * Returns
 *   0    it answered
 *   1    it did not: not registered, gone, hung, another version only, or the host cannot be reached
 *   2    the host is neither a dotted address nor a known name
 *   3    the host's port mapper did not answer in time
 *   255  the host is NULL or empty, or the program or the version is 0
 *   -1   no child could be made, it was killed, or another child of the caller ended before it: the first
 *        child to end is waited for, whichever it is
 * No error is recorded.
 */
int rpc_ping(const char *host, unsigned long program, unsigned long version, int timeout);

/*
 * The same in the calling process: 0 to 3, or -1 for bad arguments. Uses SIGALRM and alarm(), puts the
 * caller's handler back, and forgets an alarm that was running. After a 3 a socket may be left open. Methods
 * call rpc_ping.
 */
int rpc_pinghost(const char *host, unsigned long program, unsigned long version, int timeout);

/* The SIGALRM handler of rpc_pinghost; leaves its making of a client. Not to be called otherwise. */
void tmo_routine(int signal);

/* ---- mount table, mounting ---- */

/*
 * Set the line of a device or remote resource in a mount table: the line whose first field equals the
 * resource is replaced, or one is added. mntadd writes the seven columns of /etc/vfstab (device to mount,
 * device to check, mount point, type, check pass, mount at boot, options), mntadd4x the six columns of a 4.x
 * release's fstab in the order given. A column that is NULL or empty is written as "-".
 *
 * The host of a resource HOST:PATH is turned to lower case, in the table and in the caller's own string,
 * which must be writable; it may be NULL. Lines that begin with "#" are left alone.
 *
 * Return 0 or the negative status of the table interface (tables.h): -26 locked by somebody else, otherwise
 * minus an errno. Nothing is recorded.
 */
int mntadd(const char *vfstab, char *resource, const char *fsckdev, const char *mountpt, const char *fstype,
           const char *fsckpass, const char *mountatboot, const char *mntopts);
int mntadd4x(const char *vfstab, char *col0, const char *col1, const char *col2, const char *col3,
             const char *col4, const char *col5);

/*
 * Mounts a file system on the running system with /usr/sbin/mount, writes its line into the table of mounts,
 * or both.
 *
 *   resource     what to mount: a device, or HOST:/PATH. It is also the key: the line of the table with this
 *                first column is replaced, and one is added when there is none. Its case is kept, unlike in
 *                mntadd.
 *   fsckdev      the device to check; NULL or empty: "-" for the type "nfs", otherwise an error
 *   mountpt      the directory to mount it on
 *   fstype       NULL or empty: "ufs"
 *   fsckpass     NULL or empty: "2", for "nfs" "-"
 *   mountatboot  NULL or empty: "yes"
 *   mntopts      NULL or empty: "rw", for "nfs" "bg,hard,rw"
 *   takeeffect   "nowonly" only mounts, "bootonly" only edits the table, "nowandboot" (also NULL or empty)
 *                does both
 *   vfstab       the table (format: mntadd); NULL or empty: /etc/vfstab
 *
 * Success of the mount is its silence: whatever it prints, a warning too, is a failure, and its exit status
 * does not count. A mount of type "hsfs" that fails is tried once more as "ufs" when the options hold "ro"
 * anywhere; the table then says "ufs", and the first failure stays recorded. When the table cannot be edited,
 * a mount made by this call is undone with /usr/sbin/umount; when that fails too, adm_err_cleanup(NULL,
 * ADM_DIRTY) tells the framework.
 *
 * Returns 0, or after recording an error (arguments behind the method's name):
 * - 1: error 1 ("fsckdev", "resource" or "mountpt"): missing; resource and mountpt may not be "-" either.
 *   Looked at in this order, before takeeffect
 * - 10: error 10 (TAKEEFFECT, "takeeffect"): none of the three
 * - 23: error 23 ("/usr/sbin/mount", RESOURCE, LINE): the mount failed; its first line of output as read
 *   (newline included, at most 1023 characters), empty when it could not be started. The table is not touched
 * - 22: error 22: the edit could not be prepared, or memory is out (then nothing is recorded)
 * - 38: error 70 (RESOURCE, VFSTAB, DETAIL), deliberately not 70: the table could not be edited. DETAIL is
 *   message 53 when it is locked, message 8 when there is no such line, otherwise the system's reason
 */
int mount_filesystem(const char *resource, const char *fsckdev, const char *mountpt, const char *fstype,
                     const char *fsckpass, const char *mountatboot, const char *mntopts,
                     const char *takeeffect, const char *vfstab, const char *method);

/*
 * Unmounts what is mounted on mountpt with /usr/sbin/umount, removes the line with this third column from the
 * table of mounts, or both; takeeffect and vfstab as in mount_filesystem. Silence is the only sign of success
 * here too. A failed unmount ends it; an unmount is not taken back when the edit fails.
 *
 * Returns 0, or after recording an error:
 * - 1: error 1 ("mountpt"): NULL, empty or "-"
 * - 10: error 10 (TAKEEFFECT, "takeeffect")
 * - 24: error 24 ("/usr/sbin/umount", MOUNTPT, LINE): it failed, or could not be started (empty LINE)
 * - 22: error 22, as in mount_filesystem
 * - 38: error 70 (MOUNTPT, VFSTAB, DETAIL), as in mount_filesystem: also when there is no such line
 */
int unmount_filesystem(const char *mountpt, const char *takeeffect, const char *vfstab, const char *method);

/* ---- shares ---- */

/*
 * Runs /usr/sbin/share and appends an entry for each line of its output, with the second word as path and the
 * third as options. A line with fewer words takes the missing ones from the line before it; on the first line
 * they are empty. Lines may be of any length. A command that fails or cannot be started adds nothing; nothing
 * is recorded.
 *
 * The list is not emptied first. Entries are added behind sfs_current, which then is the last of them: after
 * a get_sharefs_ent that found something, the entries behind it are cut off the list (they live on until it
 * is freed).
 */
void get_sharefs_ents(void);

/* Frees the list and all that was ever cut off from it; sfs_top and sfs_current are NULL then. */
void free_sharefs_ents(void);

/*
 * Whether path is shared now with exactly these options: 1 or 0. Looks through the list with a fresh snapshot
 * added, and frees it. Neither argument may be NULL.
 */
int match_sharefs_ent(const char *path, const char *options);

/*
 * The options with which path (not NULL) is shared now; "" when it is not. Looks through the list with a
 * fresh snapshot added. After a match the list stays, with sfs_current on the entry, and the result is valid
 * until free_sharefs_ents, which the caller calls; otherwise the list is freed.
 */
const char *get_sharefs_ent(const char *path);

/*
 * Shares a directory over NFS on the running system with /usr/sbin/share, writes its line into
 * /etc/dfs/dfstab, or both.
 *
 *   fstype       "nfs"; NULL or empty mean the same
 *   options      such as "rw=c1:c2,root=c1"; NULL or empty: "rw"
 *   description  one word for the shell, quotes included when it needs them; NULL or empty: none
 *   pathname     the directory. Links and dots are resolved (realpath); when that fails it is used as given
 *   takeeffect   "nowonly" only shares, "bootonly" only edits the table, "nowandboot" (also NULL or empty)
 *                does both
 *   force        not 0: a share that fails does not end it. The daemons are started, the line is written as
 *                a comment ("#share"), and the result is that of the table alone: the failure is recorded,
 *                but 0 is returned
 *
 * A line of /etc/dfs/dfstab is `share -F nfs -o OPTIONS [-d DESCRIPTION] PATH`. One with the same first word,
 * type and path is replaced, whatever its options and description; a "#share" line matches only another such
 * line.
 *
 * When share complains that a sub-directory is shared already, and that with the same options, the
 * sub-directory is withdrawn (unsharefs, now and at boot), code 0 is recorded to take back what was recorded
 * before, and share is run again; so for each sub-directory, and again for one that somebody shares anew. A
 * parent that is shared with the same options is as good as a share of its own. After sharing,
 * enable_nfs_file_serving is called; its result does not count. When the table cannot be edited, the share is
 * undone with /usr/sbin/unshare, and when that fails too, adm_err_cleanup(NULL, ADM_DIRTY) tells the
 * framework. The resolved path is set as output argument "pathname".
 *
 * Returns 0, or after recording an error:
 * - 26: error 26 ("nfs"): another type
 * - 1: error 1 ("pathname"): NULL or empty
 * - 10: error 10 (TAKEEFFECT, "takeeffect")
 * - 27: error 27 ("/usr/sbin/share", PATH, WHY): the directory lies on an NFS mount ("cannot share nfs", in
 *   every mode), share could not be started (""), said something else (its first line, at most 1023
 *   characters), or went on about one sub-directory after a hundred withdrawals of it
 * - 29: error 29 (SUBDIRECTORY, ITS OPTIONS, PATH, OPTIONS): a sub-directory is shared with other options
 * - 30: error 30 (PATH, OPTIONS, PARENT, ITS OPTIONS, HOST): a parent is
 * - 22: error 22, as in mount_filesystem
 * - 38: error 70 (PATH, "/etc/dfs/dfstab", DETAIL), as in mount_filesystem
 */
int sharefs(const char *fstype, const char *options, const char *description, const char *pathname,
            const char *takeeffect, const char *method, int force);

/*
 * Withdraws a share from the running system with /usr/sbin/unshare, removes its line from /etc/dfs/dfstab, or
 * both. A path that is not shared, and one without a line, are no errors. The second step is tried when the
 * first failed; when one was done and the other failed, adm_err_cleanup(NULL, ADM_DIRTY) tells the framework.
 *
 *   fstype, pathname, takeeffect
 *           as in sharefs; the resolved path is set as output argument "pathname"
 *   client  NULL or empty: withdraw it whatever its options. Otherwise only if the first place in its line
 *           (of the share list, and of the table) where "=CLIENT" ends a word is not followed by ":", so
 *           that nobody else is named there: "rw=c1" for c1, but neither "rw=c1:c2" nor "rw=c2:c1". CLIENT
 *           is part of a basic regular expression. Only this test keeps a line: a share list or a table that
 *           cannot be read for another reason does not
 *
 * Returns 0, or after recording an error the code of the last failure:
 * - 26, 1, 10: as in sharefs
 * - 27: error 27 ("/usr/sbin/unshare", PATH, LINE): unshare could not be started (""), or said something else
 *   than that the path is not shared
 * - 49: error 49 ("/usr/sbin/unshare", PATH, CLIENT): it is not shared with the client alone
 * - 22: error 22, as in mount_filesystem
 * - 38: error 70 (PATH, "/etc/dfs/dfstab", DETAIL): the table could not be read or edited
 */
int unsharefs(const char *fstype, const char *pathname, const char *client, const char *takeeffect,
              const char *method);

/*
 * Makes sure that the NFS server daemons run: /usr/lib/nfs/mountd, and /usr/lib/nfs/nfsd with the arguments
 * "-a 16". A program that was set aside under its name with "-" behind it is moved back first. Waits three
 * seconds when it started one.
 *
 * Returns 0, or 42 after recording error 42 (PROGRAM, REASON): a daemon could not be started. The one behind
 * it is then not tried.
 */
int enable_nfs_file_serving(const char *method);

/* ---- bootparams ---- */

/*
 * An entry is one line of text, "NAME KEY=SERVER:PATH KEY=SERVER:PATH ...", its items separated by blanks,
 * tabs or newlines. KEY=VALUE without a colon is an item without a server. A key is found wherever its name
 * stands before an equals sign, also at the end of a longer word. Texts may be of any length.
 */

/*
 * Stores the number of a client kind ("DISKLESS", "CACHELET", "DATALESS", "DISKFULL", "OS_SERVER", "UNKNOWN";
 * capitals count) and returns 1; returns 0 and stores nothing for any other word.
 */
int get_client_index(const char *kind, int *index);

/*
 * Takes an entry apart. Every result is optional (NULL: not wanted); what is stored is a new string of the
 * caller's, the empty string where the entry says nothing.
 *
 *   server                 first server among those of "root", "swap" and "dump"
 *   exec_server            first server among those of "exec" and "kvm"
 *   *_path, boottype, swapsize
 *                          what follows the colon of that key's first item with a server; without such an
 *                          item, the value of its first item
 *   install_server         server of "install"; without one, that of "root" if the root path holds
 *                          "/export/exec/kvm/" with two characters or more on each side
 *   install_config_server  server of "install_config"
 *
 * Returns 0; 1 when `server` or `exec_server` is wanted and there is none; -1 when the entry holds no item of
 * a known key (the above and "term"), with everything stored all the same. Also -1, and nothing is stored,
 * when the entry is NULL or empty or memory is out: set the strings to NULL before the call.
 */
int parse_bootparams_entry(const char *entry, char **server, char **exec_server, char **root_path,
                           char **swap_path, char **dump_path, char **exec_path, char **kvm_path,
                           char **boottype, char **swapsize, char **install_server, char **install_path,
                           char **install_config_server, char **install_config_path);
/*
 * Returns a copy of an entry with the first item of `key` set to "KEY=SERVER:PATH", or added at the end, or
 * removed when server and path are both NULL or empty. The item goes together with the one blank, tab or
 * newline behind it, so a removal can leave two blanks; white space at the end goes. Without the item there
 * is nothing to remove, and the copy is unchanged. The caller frees the result; it is NULL when memory is
 * out.
 */
char *edit_bootparams_entry(const char *entry, const char *key, const char *server, const char *path);

/*
 * Which name-service databases a method is to update, from the method's own input arguments: "nameservice"
 * ("ufs", "nis", "nis_plus" or "all", case-sensitive), "domain" (used with NIS and NIS+; the system's
 * secure-RPC domain when missing or empty) and "db_hostname" (needed with "ufs" and "all").
 *
 * Each output may be NULL. nameservice, domain and db_hostname receive copies that the caller frees; a domain
 * or host that the selection does not use is an empty string. *mask receives the sum of HOSTADM_UFS,
 * HOSTADM_NIS and HOSTADM_NIS_PLUS. Returns the database host: the argument's own storage or a constant empty
 * string, not to be freed.
 *
 * Returns only on success; otherwise records an error and ends the process with status 1:
 * - error 1 (NAME): "nameservice", "db_hostname" or the domain is missing or empty
 * - error 10 (VALUE, NAME): the name service is none of the four
 * Without a record it does so when memory is out.
 */
const char *get_db_strings(const char *method, char **nameservice, int *mask, char **domain,
                           char **db_hostname);

/*
 * Lists the clients whose root is served by this host, from every source that the name-service switch names
 * for "bootparams", in its order; of a client found twice the first occurrence counts. Returns the head of a
 * list that lives as long as the process, or NULL when it is empty or when there is no switch configuration
 * (said on standard error). Another call appends what is new and returns the same head.
 *
 * The nodes belong to the library: read them, append nodes at the end if need be, change or free none. No
 * error is recorded. Ends the process with status 255 on a source other than "files", "nis" and "nisplus",
 * and when memory is out (said on standard error).
 */
struct client_node *do_bootparams(void);

/*
 * Adds the clients of one source, "files", "nis" or "nisplus", by performing the framework's method
 * database/list_bootparams; any other source, or NULL, ends the process with status 255. A method that fails
 * adds nothing.
 */
void read_bootparams(const char *source);

/*
 * Adds the clients among the rows of a handle, which is NULL or holds rows with the fields "hostname" and
 * "filesystems" ("root=SERVER:PATH swap=SERVER:PATH boottype=:in ..."). The walk ends at a row without host
 * name; rows without a root item, without a path in it or with another host's root are left out. The rows are
 * cut up.
 */
void foreach_client(adm_args *handle);

/* Appends one client to the list, unless one of exactly that name is there. A NULL name adds nothing. */
void add_to_list(const char *name, const char *boottype, const char *root_path);

/*
 * A new node with copies of the three strings (NULL counts as empty) and no successor, from malloc. Without
 * memory for the node or the name it ends the process with status 255; boottype or root_path alone may then
 * be NULL.
 */
struct client_node *alloc_list(const char *name, const char *boottype, const char *root_path);

/* ---- boot areas ---- */

/*
 * /tftpboot holds a copy of each boot program under the name that make_boot_name gives, a link "tftpboot" to
 * the directory itself, and two links for each client, both to its boot program: the client's IPv4 address as
 * eight upper-case hexadecimal digits, and the same with "." and the implementation architecture in upper
 * case behind it (192.168.1.10: C0A8010A and C0A8010A.KEL4M).
 *
 * client_addr is an address in dotted-decimal form; names are not looked up, and what is no address gives the
 * name FFFFFFFF. No argument may be NULL, but for those marked as unused.
 */

/*
 * Makes /tftpboot (mode 2755) and its link to itself, where they are missing. Returns only on success;
 * otherwise records an error and ends the process with status 1:
 * - error 40 (PATH): /tftpboot, or /tftpboot/tftpboot, cannot be made
 */
void make_tftpboot_dir(const char *method);

/*
 * make_tftpboot_dir, then copies the boot program of this identity into /tftpboot unless one of its name is
 * there: an existing copy is never refreshed. Where the program lies in the install hierarchy dirpath is
 * asked of the method install/get_os_pathnames on host (see install_bootprog_location). client_addr is
 * unused.
 *
 * Returns the boot program's name, in the buffer of make_boot_name. Otherwise records an error and ends the
 * process with status 1:
 * - the errors of make_tftpboot_dir and install_bootprog_location
 * - error 67 (HOST, INST_SET, IMPL_ARCH, OS_NAME, OS_VERSION): the boot program cannot be copied. What
 *   there is of the copy stays, and the next call takes it for a copy: remove it first
 * Without a record it does so when memory is out.
 */
const char *init_tftpboot_dir(const char *method, const char *host, const char *client_addr, char *impl_arch,
                              const char *dirpath, const char *inst_set, const char *os_name,
                              const char *os_version);

/*
 * Makes a client boot from /tftpboot: init_tftpboot_dir, then add_tftpboot_dir_client, whose result it
 * returns. Ends the process where init_tftpboot_dir does. impl_arch is upper-cased in place.
 */
int setup_tftpboot_dir(const char *method, const char *host, const char *client_addr, char *impl_arch,
                       const char *dirpath, const char *inst_set, const char *os_name,
                       const char *os_version);

/*
 * Removes whatever in /tftpboot begins with the client's digits, then makes its two links to boot_name. The
 * string impl_arch is upper-cased in place and stays so. Returns 0, or -1 when the second link, the one with
 * the architecture, cannot be made; records nothing.
 */
int add_tftpboot_dir_client(const char *method, const char *boot_name, const char *client_addr,
                            char *impl_arch);

/*
 * Removes every name in /tftpboot that begins with the client's digits; the boot program stays. Returns what
 * system() returned for "rm": not 0 when there was nothing to remove, of which rm then complains on standard
 * error. Records nothing. method is unused and may be NULL.
 */
int delete_tftpboot_dir_client(const char *method, const char *client_addr);
int cleanup_tftpboot_dir(const char *method, const char *client_addr);

/*
 * /rplboot holds, for clients of the remote-program-load daemon, a copy of each boot program and of the two
 * modules "gluecode.com" and "smc.com", and three links for each client: KEY.hw.com to ./smc.com,
 * KEY.glue.com to ./gluecode.com and KEY.inetboot to the boot program. client_key is the identifier under
 * which the client asks, such as its Ethernet address as twelve hexadecimal digits; it is used as it is.
 */

/*
 * Makes /rplboot (mode 2755) and copies into it those of the three shared files that are missing, from the
 * exported image ROOT_DIR/export/exec/INST_SET.OS_NAME_OS_VERSION: each from platform/IMPL_ARCH/lib/fs/nfs
 * if it is there, else the boot program ("inetboot") from lib/fs/nfs and the modules from
 * lib/fs/nfs/drv.i86pc. A copy that is there is never refreshed. A copy that fails is not told
 * of, and what there is of it stays: compare the files. client_key is unused.
 *
 * Returns the boot program's name, in the buffer of make_boot_name. Otherwise records an error and ends the
 * process with status 1:
 * - error 40 ("/rplboot"): the directory cannot be made
 * - error 67 (this host, INST_SET, IMPL_ARCH, OS_NAME, OS_VERSION): the image lacks one of the files
 * Without a record it does so when memory is out.
 */
const char *init_rplboot_dir(const char *method, const char *client_key, const char *impl_arch,
                             const char *root_dir, const char *inst_set, const char *os_name,
                             const char *os_version);

/* init_rplboot_dir, then add_rplboot_dir_client. Ends the process where the first does. */
int setup_rplboot_dir(const char *method, const char *client_key, const char *impl_arch, const char *root_dir,
                      const char *inst_set, const char *os_name, const char *os_version);

/*
 * Replaces the client's three links. Returns 0, or -1 when the last, KEY.inetboot, cannot be made; records
 * nothing. method is unused and may be NULL.
 */
int add_rplboot_dir_client(const char *method, const char *boot_name, const char *client_key);

/*
 * Removes every name in /rplboot that begins with the key, so also those of a client whose key begins with
 * this one. Returns what system() returned for "rm": not 0 when there was nothing to remove. Records nothing.
 * method is unused and may be NULL.
 */
int delete_rplboot_dir_client(const char *method, const char *client_key);
int cleanup_rplboot_dir(const char *method, const char *client_key);

/* ---- daemons ---- */

/*
 * Whether a daemon runs, by a look at every process in /proc. name is its program without the directory, such
 * as "nfsd". A process counts when "/" and the name occur anywhere in the first 79 bytes of its arguments: an
 * editor open on /tmp/nfsd counts, a daemon started by its bare name does not.
 *
 * pid (may be NULL) is set to the id of the process that decided: the live one, or the last defunct one;
 * otherwise it is left as it was. Nothing is recorded.
 *
 * HOSTADM_DAEMON_RUNNING (1), HOSTADM_DAEMON_DEFUNCT (4: only defunct ones), HOSTADM_DAEMON_NOT_RUNNING (2:
 * none, or name is NULL), HOSTADM_DAEMON_NO_PROCFS (3: /proc cannot be opened, or memory is out)
 */
int check_daemon(const char *name, int *pid);

/*
 * Whether a reverse-address daemon serves a network interface: a process whose program is "in.rarpd", with
 * "-a" (all interfaces) or the interface's name anywhere in the first 79 bytes of its arguments. With NULL
 * only "-a" counts. Results as those of check_daemon.
 */
int check_rarpd(const char *interface);

/*
 * Starts a daemon in the background and returns at once: 0 when a process was made for it, -1 with errno when
 * not (or path is NULL). Whether the program exists and stays up is not looked at. Nothing is recorded, and
 * the process is not waited for: until the caller ends or waits, it stays as a defunct child once it has
 * ended.
 *
 * path is the program. One whose path holds "in.rarpd" or "rpld" is run with the one argument "-a", whatever
 * args says. Otherwise args is NULL (no arguments), or a piece of shell text: the shell runs "PATH ARGS &".
 *
 * The daemon gets a session of its own, /dev/null as standard input, output and error, and no other
 * descriptor, so that it holds no terminal, pipe or file of the caller. It keeps the caller's working
 * directory and environment.
 */
int start_daemon(const char *path, const char *args);

/* ---- identity and paths ---- */

/* Asks the platform for this host's name, for the library's own use. */
void get_hostname(void);

/*
 * Reads the method's arguments "instruction_set", "implementation_arch" (both turned to lower case),
 * "os_name" and "os_version" into new strings of the caller's. Returns 0, or the position (1 to 4) of the
 * first one that is missing or for which memory is out; nothing is stored then. Records nothing.
 */
int get_arch_strings(char **inst_set, char **impl_arch, char **os_name, char **os_version);

/* The argument's name for such a position, NULL for any other number. */
const char *arch_xlate(int code);

/*
 * The file name of the boot program that a client of that identity loads: "boot.ARCH.OS.VERSION" for a
 * version that begins with "4." on an instruction set that begins with "kel3" or "kel4", otherwise
 * "inetboot.ARCH.OS_VERSION". It lies in a buffer of the library, which the next call changes. NULL when
 * memory is out. Mind the order of the arguments.
 */
const char *make_boot_name(const char *os_version, const char *os_name, const char *inst_set,
                           const char *impl_arch);
/*
 * The defaulting functions check a client's identity and paths and fill in what is missing. What they do not
 * accept they record, and then end the process with exit(1) (so they do without a record when memory is out):
 *
 *   an identity string is NULL or empty         error 1 (method, argument name)
 *   a path is not absolute                      error 10 (method, path, argument name)
 *
 * A path is given by the address of the caller's string pointer; NULL for that address means that the path is
 * not wanted. A string that is NULL or empty asks for the default, and the pointer is set to a new string
 * that the caller frees. A string that is kept loses its trailing slashes in place, so it must be writable;
 * "/" stays.
 *
 * default_boot_paths, for a client that boots from its root on this server:
 *   boot_file  default make_boot_name(); a given one is not looked at
 *   root_path  default "root/HOST"; argument name "rootpath"
 *   swap_path  default "swap/HOST"; argument name "swappath"
 *   dump_path  none by default
 * The defaults of root and swap are relative and so are never accepted, nor is "/" alone: pass both. A dump
 * path that equals the swap path or the host's name means none and, like a missing one, is set to an empty
 * string that must not be freed. A dump path may be relative; one of a single character, or one without an
 * absolute swap path, is error 10 (method, swap path, "dumppath").
 *
 * default_install_paths, for a client that boots from installation media:
 *   install_hierarchy  default "/cdrom/cdrom0/s0", then also the method's output "install_hierarchy"
 *   boot_file          as above
 *   root_path          default what the install method says (see below), then also the method's output
 *                      "rootpath"; needs install_hierarchy. Argument name "rootpath"
 */
void default_boot_paths(const char *method, const char *host, const char *inst_set, const char *impl_arch,
                        const char *os_name, const char *os_version, char **boot_file, char **root_path,
                        char **swap_path, char **dump_path);

/*
 * Asks the method install/get_os_pathnames on `host` where in the install hierarchy `dirpath` the root and
 * the boot program for an identity lie, and keeps the answer for the rest of the process: as long as the
 * identity is the same, host and hierarchy are not looked at again. Four empty identity strings are answered
 * without asking. Always returns 0; a failure ends the process with exit(1):
 *
 *   the method could not be run     error 56 (method, "get_os_pathnames", host, reason)
 *   it returned no row              error 66 (method, host, and the four identity strings), marked clean
 */
int get_install_os_pathnames(const char *method, const char *host, const char *dirpath, const char *inst_set,
                             const char *impl_arch, const char *os_name, const char *os_version);

/* Asks likewise. The path of the boot program, a new string of the caller's; NULL when memory is out. */
char *install_bootprog_location(const char *method, const char *host, const char *dirpath,
                                const char *inst_set, const char *impl_arch, const char *os_name,
                                const char *os_version);

/* See default_boot_paths. */
void default_install_paths(const char *method, const char *host, const char *inst_set, const char *impl_arch,
                           const char *os_name, const char *os_version, char **install_hierarchy,
                           char **boot_file, char **root_path);

/* ---- client root ---- */

/*
 * Fills a client's root. root is an existing directory, without a trailing slash; of os_service the elements
 * 1 (OS name) and 2 (OS version) are used; sources may be NULL.
 *
 * First setup_environment(root). Then each source in turn: a version that begins with "4." has its ready-made
 * trees copied (find and cpio), any other has the packages of its spool directories installed with
 * "/usr/sbin/pkgadd -R". Last, not for 4.x, the software catalogue (.clustertoc, CLUSTER and INST_RELEASE) is
 * copied from /export/NAME_VERSION/var/sadm, from where newer services keep it or else from where older ones
 * do.
 *
 * Returns 0; an errno value or -1 from setup_environment; 1 when a command failed; -1 also when memory is
 * out. Records nothing itself: do_systemcmd records what a command said (errors 91 and 92) under the method
 * name "create_clnt_root". Before the failure of a command is returned, cleanup(root) has been called. After
 * success the admin file is still in /tmp; cleanup(root) removes it then, and nothing else.
 */
int create_clnt_root(const char *root, const char *const os_service[], const struct package_source *sources);

/*
 * Makes /var, /var/sadm, /var/sadm/softinfo, /var/sadm/install_data and /usr under root (mode 0775 less the
 * umask, owner 0, group 3; an existing one changes hands too), and the admin file /tmp/admin.XXXXXX, which
 * tells pkgadd to ask nothing. The file is made exclusively with mode 0600; its lines are KEY=VALUE: mail is
 * empty, instance is unique, space is quit, basedir is /, and every other check is nocheck.
 *
 * Returns 0; the errno value of the directory that failed, after those made before it were removed; or -1
 * when the admin file cannot be made (the directories stay) or written (cleanup(root) has been called).
 * Records nothing.
 */
int setup_environment(const char *root);

/*
 * Removes the admin file, if one was made in this process, and, as long as no source has been installed, the
 * directories of setup_environment as far as they are empty. Reports nothing.
 */
void cleanup(const char *root);

/*
 * Makes the directory ROOT PATH (the two texts joined) with the mode less the umask, and gives it to uid and
 * gid; one that exists only changes hands. Returns 0 or an errno value; after a failed chown the directory is
 * removed if it is empty.
 */
int mkdir_chown(const char *root, const char *path, int mode, int uid, int gid);

/*
 * Hooks that package tools call. They do nothing; start_pkgadd and end_pkgadd return 1, and cleanup_and_exit
 * ends the process with status 2.
 */
void interactive_pkgadd(void);
void interactive_pkgrm(void);
int start_pkgadd(void);
int end_pkgadd(void);
void cleanup_and_exit(void);
void progress_init(void);
void progress_done(void);
void progress_cleanup(void);

/* ---- OS services, patches ---- */

/*
 * Splits the value of an argument in place into `count` words separated by white space. Of the five pointers
 * of `words` the 4th, 5th, 2nd and 3rd receive the first to the fourth word, pointing into the value; the 1st
 * is left alone. Words found before a failure stay stored.
 *
 * Returns
 *   0   that many words were stored; what follows them is not looked at
 *   -1  the value ended before
 *   1   arg, its value or words is NULL, its length is 0, count is below 1, there would be a fifth word,
 *       white space runs to the end of the value, or the value is longer than its length
 */
int parse_os_service_par(struct adm_arg *arg, char **words, int count);

/*
 * Applies the stored patches to a client's root: runs OPTADMIN/bin/drelpatch -C CLIENT_ROOT. Returns 0 when
 * that succeeded, and also when client_root (which may be NULL) or the tool does not exist; 1 when it failed,
 * with error 91 or 92 of do_systemcmd, recorded without a method name.
 */
int apply_patches(const char *client_root);

/*
 * Does a stored patch for an architecture deliver a file? Searches the package maps
 * DATAADMIN/Patches/PATCH/PACKAGE/pkgmap for `file`, a pattern for grep that is given to a shell as it is.
 * Returns a status of system(): 0 no, 256 yes, -1 the shell could not be started. In a store of one package
 * map only the answer is always no, since grep then tells no file name.
 */
int file_in_patches(const char *arch, const char *file);

/* ---- cache-only clients ---- */

/*
 * Switch the cached mounts of a client on and off, in its own table CLIENT_ROOT/etc/vfstab (seven columns, as
 * mntadd writes it). enable_chart appends ",disconnectable" to the lines whose mount point is /, /usr or
 * /usr/openwin, unless they have the word already, and makes the directory CLIENT_ROOT/etc/fs/cachefs;
 * disable_chart cuts every line before ",disconnectable", with the options behind it, and removes the
 * directory if it is empty. Comments stay. The table keeps its mode and owner. Nothing is locked, and a
 * failure to move the new table into place is not reported. The new table is made in /tmp: where that is
 * another file system, the move is a copy, and a power cut during it can leave half a table.
 *
 * Return 0, or 1: error 37 ("", STEP, REASON) when the step "fopen", "fprintf" or "awk" failed and the table
 * is as it was (the first argument, elsewhere the method's name, is empty); or, without an error, when
 * enable_chart has changed the table but the directory could not be made.
 */
int enable_chart(const char *client_root);
int disable_chart(const char *client_root);

/*
 * Gives a client the disk profile DATAADMIN/etc/autoinstall/PROFILE_SET/PROFILE: copies it to
 * CLIENT_ROOT/.autoinstall/PROFILE and makes the link "profile" beside it. Returns 0, or 1 with error 44
 * (SOURCE FILE) when it could not be copied; the link is then as it was. A link that cannot be made is not
 * reported.
 */
int set_cachelet_disk_config(const char *method, const char *client_root, const char *profile_set,
                             const char *profile);

/*
 * Writes an admin file for pkgadd that waives every question but a shortage of space, mode 0600, and returns
 * its name, /tmp/pkgadmin.PID, in a buffer that the next call overwrites. The caller removes the file. When
 * it could not be written as a whole there is none of that name.
 */
char *make_admin_file(const char *basedir);

/*
 * Installs a package from package_dir, unless one whose name begins so is recorded for the architecture: on
 * this server when release (such as 2.5 or 5.5; only what follows the first two characters counts) and
 * architecture are its own, else into /export/Quorvel_2.X. Whether it is recorded is looked up on this server
 * whenever the releases are the same.
 *
 * Returns
 *   0          it was recorded, or is installed now
 *   1          it is missing from package_dir: error 96 (PATH)
 *   any other  what system() returned for pkgadd (-1 also when no log could be made), recorded as by
 *              do_pkgadd_failure
 */
int do_cachelet_pkgadd(const char *method, const char *arch, const char *release, const char *package_dir,
                       const char *package);

/*
 * Records a failed pkgadd: error 21 (PACKAGE_DIR, TEXT) with the first 3,696 bytes of the log, and "....." if
 * it has as many; error 17 (PACKAGE_DIR, STATUS) when the log cannot be opened. Marks the host as left half
 * done.
 */
void do_pkgadd_failure(const char *method, const char *package_dir, int status, const char *log);

/*
 * Installs on this server what cache-only clients need of it (KTVXqsvu, KTVXqsvr from
 * DATAADMIN/Packages/ARCH/5.X), stopping at the first failure. Returns 0, or 1 with the error of
 * do_cachelet_pkgadd.
 */
int setup_as_cachelet_server(const char *method);

/*
 * Installs what cache-only clients of one OS service need: KTVXqcu, and for release "2.4" first KTVXmgr5u
 * and, among the templates, KTVXmgr5r. Returns 0, or 1 with an error recorded; also 1, without an error, when
 * the template has just been added: call it again then, and it goes on.
 */
int setup_cachelet_service(const char *method, const char *arch, const char *release);

/*
 * Adds a package to the templates of a service's client roots: copies it to
 * /export/root/templates/Quorvel_2.X/PACKAGE_VERSION_ARCH.all and appends its two lines to the service's
 * record file, Quorvel_2.X in /var/sadm/system/admin/services (on a server whose release has a third
 * character up to "4", such as 5.4: in /var/sadm/softinfo). Older versions are replaced if what the process
 * has as its standard input holds a line with the architecture and, behind it, the package's name: give it
 * the record file, or /dev/null, never a terminal. The version is a word of the commands that are run.
 *
 * Returns 0 when the template was recorded already, another number than 0 when it was added (the record file
 * is not looked at again), and 1 after a failure, with error 96 (PATH: no such package), 21 (PATH, REASON: no
 * version), 97 (TEMPLATE, RECORD FILE: the directory exists but is not recorded), or those of do_systemcmd
 * (the copy).
 */
int add_pkg_to_templates(const char *method, const char *package_dir, const char *package, const char *arch,
                         const char *release);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
