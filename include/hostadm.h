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
 * result that points into a buffer of the library is valid until the next call of the same function.
 * 3. NULL. An argument may be NULL only where its function says so.
 * 4. Words given to the shell. Paths, options and names are placed into shell commands as they are; the
 * caller has checked them. Methods get this from the framework, which checks every argument before a method
 * runs.
 * 5. Threads. None: the library keeps process-wide buffers and is used by one thread of one method process.
 */
#ifndef HOSTADM_H
#define HOSTADM_H

#include <stdarg.h>

#include "hostadm/framework.h"

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

struct swmgmt_error {
    int kind;
    const void *detail;
};

struct swmgmt_space {
    struct swmgmt_space *next;
    const char *name;
    const char *label;
    int available_kb;
    int required_kb;
    int no_inodes;
};

struct swmgmt_no_space {
    const char *second;
    const char *first;
};

struct swmgmt_revision {
    const char *package;
    const char *arch;
    const char *installed;
    const char *required;
};

/* ---- data objects ---- */

/* Both NULL at first. Set by the method, whose strings they stay; the library only reads it. */
extern struct hold_dev_record hold_dev;
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
int sprintf_alloc(char **result, const char *format, ...);
int vsprintf_alloc(char **result, const char *format, va_list args);

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

void set_swmgmt_errors(const char *method, const struct swmgmt_error *error);
int rpc_ping(const char *host, unsigned long program, unsigned long version, int timeout);
int rpc_pinghost(const char *host, unsigned long program, unsigned long version, int timeout);
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
int mount_filesystem(const char *resource, const char *fsckdev, const char *mountpt, const char *fstype,
                     const char *fsckpass, const char *mountatboot, const char *mntopts,
                     const char *takeeffect, const char *vfstab, const char *method);
int unmount_filesystem(const char *mountpt, const char *takeeffect, const char *vfstab, const char *method);

/* ---- shares ---- */

void get_sharefs_ents(void);
void free_sharefs_ents(void);
int match_sharefs_ent(const char *path, const char *options);
const char *get_sharefs_ent(const char *path);
int sharefs(const char *fstype, const char *options, const char *description, const char *pathname,
            const char *takeeffect, const char *method, int force);
int unsharefs(const char *fstype, const char *pathname, const char *client, const char *takeeffect,
              const char *method);
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
 */
const char *get_db_strings(const char *method, char **nameservice, int *mask, char **domain,
                           char **db_hostname);
struct client_node *do_bootparams(void);
void read_bootparams(const char *source);
void foreach_client(adm_args *handle);
void add_to_list(const char *name, const char *boottype, const char *root_path);
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
 * - error 67 (HOST, INST_SET, IMPL_ARCH, OS_NAME, OS_VERSION): the boot program cannot be copied
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
 * exported image ROOT_DIR/export/exec/INST_SET.OS_NAME_OS_VERSION: each from platform/IMPL_ARCH/lib/fs/nfs if
 * it is there, else the boot program ("inetboot") from lib/fs/nfs and the modules from lib/fs/nfs/drv.i86pc.
 * A copy that is there is never refreshed, and a copy that fails is not noticed. client_key is unused.
 *
 * Returns the boot program's name, in the buffer of make_boot_name. Otherwise records an error and ends the
 * process with status 1:
 * - error 40 ("/rplboot"): the directory cannot be made
 * - error 67 (this host, INST_SET, IMPL_ARCH, OS_NAME, OS_VERSION): the image lacks one of the files
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

int check_daemon(const char *name, int *pid);
int check_rarpd(const char *interface);
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
 * Returns 0; an errno value or -1 from setup_environment; or 1 when a command failed. Records nothing itself:
 * do_systemcmd records what a command said (errors 91 and 92) under the method name "create_clnt_root".
 * Before a failure is returned, cleanup(root) has been called. After success the admin file is still in /tmp;
 * cleanup(root) removes it then, and nothing else.
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
 * Makes the directory ROOT PATH (the two texts joined) with the mode, and gives it to uid and gid; one that
 * exists only changes hands. Returns 0 or an errno value; after a failed chown the directory is removed if it
 * is empty.
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

int parse_os_service_par(struct adm_arg *arg, char **words, int count);
int apply_patches(const char *client_root);
int file_in_patches(const char *arch, const char *file);

/* ---- cache-only clients ---- */

int enable_chart(const char *client_root);
int disable_chart(const char *client_root);
int set_cachelet_disk_config(const char *method, const char *client_root, const char *profile_set,
                             const char *profile);
char *make_admin_file(const char *basedir);
int do_cachelet_pkgadd(const char *method, const char *arch, const char *release, const char *package_dir,
                       const char *package);
void do_pkgadd_failure(const char *method, const char *package_dir, int status, const char *log);
int setup_as_cachelet_server(const char *method);
int setup_cachelet_service(const char *method, const char *arch, const char *release);
int add_pkg_to_templates(const char *method, const char *package_dir, const char *package, const char *arch,
                         const char *release);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
