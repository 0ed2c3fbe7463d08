// SPDX-License-Identifier: MIT
/* Stands in for GVfs, which nearly every desktop has: a module of GIO that takes over the addresses of files as the
 * program first uses one. Like GVfs it asks for the session bus then, on that very thread and without a limit, and has
 * broken pipes ignored. GIO_EXTRA_MODULES names the folder in which it lies. */
#include <gio/gio.h>
#include <signal.h>

typedef struct {
    GVfs parent;
} StandInVfs;

typedef struct {
    GVfsClass parent;
} StandInVfsClass;

GType stand_in_vfs_get_type(void);

G_DEFINE_DYNAMIC_TYPE(StandInVfs, stand_in_vfs, G_TYPE_VFS)

static gboolean is_active(GVfs *vfs) {
    (void)vfs;
    return TRUE;
}

static GFile *file_for_path(GVfs *vfs, const char *path) {
    (void)vfs;
    return g_vfs_get_file_for_path(g_vfs_get_local(), path);
}

static GFile *file_for_uri(GVfs *vfs, const char *uri) {
    (void)vfs;
    return g_vfs_get_file_for_uri(g_vfs_get_local(), uri);
}

static const gchar *const *uri_schemes(GVfs *vfs) {
    (void)vfs;
    return g_vfs_get_supported_uri_schemes(g_vfs_get_local());
}

static GFile *parse_name(GVfs *vfs, const char *name) {
    (void)vfs;
    return g_vfs_parse_name(g_vfs_get_local(), name);
}

static void stand_in_vfs_class_init(StandInVfsClass *class) {
    GVfsClass *vfs = G_VFS_CLASS(class);
    vfs->is_active = is_active;
    vfs->get_file_for_path = file_for_path;
    vfs->get_file_for_uri = file_for_uri;
    vfs->get_supported_uri_schemes = uri_schemes;
    vfs->parse_name = parse_name;
}

static void stand_in_vfs_class_finalize(StandInVfsClass *class) {
    (void)class;
}

static void stand_in_vfs_init(StandInVfs *vfs) {
    (void)vfs;
    GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SESSION, NULL, NULL);
    g_clear_object(&bus);
    signal(SIGPIPE, SIG_IGN);
}

void g_io_module_load(GIOModule *module) {
    g_type_module_use(G_TYPE_MODULE(module));
    stand_in_vfs_register_type(G_TYPE_MODULE(module));
    g_io_extension_point_implement(G_VFS_EXTENSION_POINT_NAME, stand_in_vfs_get_type(), "gvfs", 10);
}

void g_io_module_unload(GIOModule *module) {
    (void)module;
}
