# SPDX-License-Identifier: MIT
"""The C interface, as cffi reads it. Written by make-declarations; a test says when it is old."""
C = """
typedef struct adm_arg { const char *name; unsigned int type; unsigned int length; char *value; } adm_arg;
typedef struct adm_args adm_args;
typedef struct adm_error { int code; char *text; } adm_error;
int adm_init(void);
int adm_args_geti(const char *name, unsigned int type, adm_arg **record);
int adm_args_set(const char *name, unsigned int type, unsigned int length, const void *value);
int adm_args_newh(adm_args **handle);
int adm_args_puta(adm_args *handle, const char *name, unsigned int type, unsigned int length, const void
    *value);
int adm_args_geta(adm_args *handle, const char *name, unsigned int type, adm_arg **record);
int adm_args_reset(adm_args *handle);
int adm_args_nextr(adm_args *handle);
unsigned int adm_args_htype(adm_args *handle);
int adm_args_freeh(adm_args *handle);
int _get_returned_arg(adm_args *handle, const char *name, const char *fallback, char **value);
int adm_perf_method(const char *method, adm_args *input, adm_args **output, adm_error **error, ...);
int adm_err_setf(adm_error *where, int code, const char *format, ...);
int adm_err_cleanup(adm_error *where, int state);
int adm_err_freeh(adm_error *error);
extern const char *const system_msgs[];
enum { HOSTADM_DISKLESS = 1, HOSTADM_DATALESS = 2, HOSTADM_DISKFULL = 3, HOSTADM_CACHELET = 4,
    HOSTADM_OS_SERVER = 5, HOSTADM_UNKNOWN = 99 };
enum { HOSTADM_NOWONLY = 1, HOSTADM_BOOTONLY = 2, HOSTADM_NOWANDBOOT = 3 };
enum { HOSTADM_UFS = 1, HOSTADM_NIS = 2, HOSTADM_NIS_PLUS = 4, HOSTADM_ALL = 7 };
enum { HOSTADM_DAEMON_RUNNING = 1, HOSTADM_DAEMON_NOT_RUNNING = 2, HOSTADM_DAEMON_NO_PROCFS = 3,
    HOSTADM_DAEMON_DEFUNCT = 4 };
struct hold_dev_record { const char *directory; const char *device_name; };
struct sharefs_entry { char *path; char *options; struct sharefs_entry *next; };
struct client_node { char *name; char *boottype; char *root_path; struct client_node *next; };
struct package_source { struct package_source *next; const char *path; };
struct swmgmt_error { int kind; const void *detail; };
struct swmgmt_space { struct swmgmt_space *next; const char *name; const char *label; int available_kb; int
    required_kb; int no_inodes; };
struct swmgmt_no_space { const char *second; const char *first; };
struct swmgmt_revision { const char *package; const char *arch; const char *installed; const char *required;
    };
extern struct hold_dev_record hold_dev;
extern struct sharefs_entry *sfs_top;
extern struct sharefs_entry *sfs_current;
int do_systemcmd(const char *command, const char *method);
int sprintf_alloc(char **result, const char *format, ...);
int mkdir_path(char *path);
int mklink(const char *target, const char *link_path);
int copyfile(const char *destination, const char *source);
int copytree(char *destination, const char *source);
int makedevs(const char *directory, const char *device_name);
int set_hosts(const char *table, const char *key, const char *value);
void set_swmgmt_errors(const char *method, const struct swmgmt_error *error);
int rpc_ping(const char *host, unsigned long program, unsigned long version, int timeout);
int rpc_pinghost(const char *host, unsigned long program, unsigned long version, int timeout);
void tmo_routine(int signal);
int mntadd(const char *vfstab, char *resource, const char *fsckdev, const char *mountpt, const char *fstype,
    const char *fsckpass, const char *mountatboot, const char *mntopts);
int mntadd4x(const char *vfstab, char *col0, const char *col1, const char *col2, const char *col3, const char
    *col4, const char *col5);
int mount_filesystem(const char *resource, const char *fsckdev, const char *mountpt, const char *fstype, const
    char *fsckpass, const char *mountatboot, const char *mntopts, const char *takeeffect, const char *vfstab,
    const char *method);
int unmount_filesystem(const char *mountpt, const char *takeeffect, const char *vfstab, const char *method);
void get_sharefs_ents(void);
void free_sharefs_ents(void);
int match_sharefs_ent(const char *path, const char *options);
const char *get_sharefs_ent(const char *path);
int sharefs(const char *fstype, const char *options, const char *description, const char *pathname, const char
    *takeeffect, const char *method, int force);
int unsharefs(const char *fstype, const char *pathname, const char *client, const char *takeeffect, const char
    *method);
int enable_nfs_file_serving(const char *method);
int get_client_index(const char *kind, int *index);
int parse_bootparams_entry(const char *entry, char **server, char **exec_server, char **root_path, char
    **swap_path, char **dump_path, char **exec_path, char **kvm_path, char **boottype, char **swapsize, char
    **install_server, char **install_path, char **install_config_server, char **install_config_path);
char *edit_bootparams_entry(const char *entry, const char *key, const char *server, const char *path);
const char *get_db_strings(const char *method, char **nameservice, int *mask, char **domain, char
    **db_hostname);
struct client_node *do_bootparams(void);
void read_bootparams(const char *source);
void foreach_client(adm_args *handle);
void add_to_list(const char *name, const char *boottype, const char *root_path);
struct client_node *alloc_list(const char *name, const char *boottype, const char *root_path);
void make_tftpboot_dir(const char *method);
const char *init_tftpboot_dir(const char *method, const char *host, const char *client_addr, char *impl_arch,
    const char *dirpath, const char *inst_set, const char *os_name, const char *os_version);
int setup_tftpboot_dir(const char *method, const char *host, const char *client_addr, char *impl_arch, const
    char *dirpath, const char *inst_set, const char *os_name, const char *os_version);
int add_tftpboot_dir_client(const char *method, const char *boot_name, const char *client_addr, char
    *impl_arch);
int delete_tftpboot_dir_client(const char *method, const char *client_addr);
int cleanup_tftpboot_dir(const char *method, const char *client_addr);
const char *init_rplboot_dir(const char *method, const char *client_key, const char *impl_arch, const char
    *root_dir, const char *inst_set, const char *os_name, const char *os_version);
int setup_rplboot_dir(const char *method, const char *client_key, const char *impl_arch, const char *root_dir,
    const char *inst_set, const char *os_name, const char *os_version);
int add_rplboot_dir_client(const char *method, const char *boot_name, const char *client_key);
int delete_rplboot_dir_client(const char *method, const char *client_key);
int cleanup_rplboot_dir(const char *method, const char *client_key);
int check_daemon(const char *name, int *pid);
int check_rarpd(const char *interface);
int start_daemon(const char *path, const char *args);
void get_hostname(void);
int get_arch_strings(char **inst_set, char **impl_arch, char **os_name, char **os_version);
const char *arch_xlate(int code);
const char *make_boot_name(const char *os_version, const char *os_name, const char *inst_set, const char
    *impl_arch);
void default_boot_paths(const char *method, const char *host, const char *inst_set, const char *impl_arch,
    const char *os_name, const char *os_version, char **boot_file, char **root_path, char **swap_path, char
    **dump_path);
int get_install_os_pathnames(const char *method, const char *host, const char *dirpath, const char *inst_set,
    const char *impl_arch, const char *os_name, const char *os_version);
char *install_bootprog_location(const char *method, const char *host, const char *dirpath, const char
    *inst_set, const char *impl_arch, const char *os_name, const char *os_version);
void default_install_paths(const char *method, const char *host, const char *inst_set, const char *impl_arch,
    const char *os_name, const char *os_version, char **install_hierarchy, char **boot_file, char
    **root_path);
int create_clnt_root(const char *root, const char *const os_service[], const struct package_source *sources);
int setup_environment(const char *root);
void cleanup(const char *root);
int mkdir_chown(const char *root, const char *path, int mode, int uid, int gid);
void interactive_pkgadd(void);
void interactive_pkgrm(void);
int start_pkgadd(void);
int end_pkgadd(void);
void cleanup_and_exit(void);
void progress_init(void);
void progress_done(void);
void progress_cleanup(void);
int parse_os_service_par(struct adm_arg *arg, char **words, int count);
int apply_patches(const char *client_root);
int file_in_patches(const char *arch, const char *file);
int enable_chart(const char *client_root);
int disable_chart(const char *client_root);
int set_cachelet_disk_config(const char *method, const char *client_root, const char *profile_set, const char
    *profile);
char *make_admin_file(const char *basedir);
int do_cachelet_pkgadd(const char *method, const char *arch, const char *release, const char *package_dir,
    const char *package);
void do_pkgadd_failure(const char *method, const char *package_dir, int status, const char *log);
int setup_as_cachelet_server(const char *method);
int setup_cachelet_service(const char *method, const char *arch, const char *release);
int add_pkg_to_templates(const char *method, const char *package_dir, const char *package, const char *arch,
    const char *release);
"""
