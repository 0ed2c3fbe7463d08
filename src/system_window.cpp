// SPDX-License-Identifier: MIT
// First the pieces that both tabs use, then the System tab, the Modules tab, the bar that asks for a permission, and
// last the window around them.
#include "system_window.h"

#include "local_system.h"
#include "theme.h"
#include "widgets.h"

#include <gtk/gtk.h>
#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr char USED_FG_ACTIVE[] = "#15803d";
constexpr char USED_FG_IDLE[] = "#9ca3af";

constexpr char COMMAND_KEY[] = "cmd";
constexpr char COPY_BUTTON_KEY[] = "copy-btn";
constexpr char HEIGHT_KEY[] = "height";

// In pixels.
constexpr int KEY_WIDTH = 110;
constexpr int KEY_GAP = 12;
constexpr int DETAIL_MARGIN = 12;
constexpr int FIRST_LIST_HEIGHT = 250;
/// A pane below this size has not been placed in its window yet.
constexpr int LEAST_PANE_HEIGHT = 120;
constexpr int LEAST_PANE_WIDTH = 50;

/// The columns of the store.
enum Column { NAME, SIZE_TEXT, SIZE, REFCOUNT, USED_BY, USED_FG, INDEX, COLUMNS };

GtkWidget* system_win = nullptr;
std::vector<KernelModule> g_modules;

GtkListStore* g_store = nullptr;
GtkTreeModel* g_filter = nullptr;
GtkTreeSelection* g_selection = nullptr;
GtkWidget* g_search = nullptr;
GtkWidget* g_detail_box = nullptr;
GtkWidget* g_mod_status = nullptr;
GtkWidget* g_mod_error = nullptr;
GtkWidget* g_mod_error_title = nullptr;
GtkWidget* g_mod_error_text = nullptr;
GtkWidget* g_mod_pane = nullptr;

/// The button that reads "Copied", or null. It is cleared when the button goes, since its timer may run later.
GtkWidget* g_copied_button = nullptr;

// ---- Keys, values and badges ----------------------------------------------------------------------------------------

/// Gives a widget that has no label of its own a name for screen readers.
void set_accessible_name(GtkWidget* widget, const char* name) {
    atk_object_set_name(gtk_widget_get_accessible(widget), name);
}

GtkWidget* key_label(const char* key) {
    GtkWidget* label = left_label(key, "key");
    gtk_widget_set_size_request(label, KEY_WIDTH, -1);
    return label;
}

GtkWidget* badge(const std::string& text, const char* css_class) {
    return theme_badge(valid_utf8(text).get(), css_class);
}

GtkWidget* kv_row(const char* key, const std::string& value, bool mono) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, KEY_GAP);
    GtkWidget* name = key_label(key);
    gtk_widget_set_valign(name, GTK_ALIGN_START);
    pack(row, name);
    GtkWidget* text = wrapped_label(value, mono ? "mono" : "val");
    gtk_label_set_selectable(GTK_LABEL(text), TRUE);
    gtk_label_set_max_width_chars(GTK_LABEL(text), 58);
    // So a screen reader says whose value it reads.
    gtk_label_set_mnemonic_widget(GTK_LABEL(name), text);
    pack_filling(row, text);
    return row;
}

/// Adds a key and its value to a card, unless the value is unknown.
void card_add_kv(GtkWidget* card, const char* key, const std::string& value, bool mono = false) {
    if (!value.empty()) pack(card, kv_row(key, value, mono));
}

GtkWidget* card_with_title(const char* title) {
    GtkWidget* card = theme_card();
    pack(card, left_label(title, "section"));
    return card;
}

bool in_use(const KernelModule& m) {
    return m.refcount > 0 || !m.used_by.empty();
}

size_t count_in_use() {
    return static_cast<size_t>(std::ranges::count_if(g_modules, in_use));
}

// ---- System tab: the kernel and the system --------------------------------------------------------------------------

GtkWidget* running_kernel_card(const SystemInfo& si) {
    GtkWidget* card = card_with_title("RUNNING KERNEL");
    GtkWidget* top = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 10);
    GtkWidget* ver = left_label(si.running_kernel, "val-strong");
    gtk_label_set_selectable(GTK_LABEL(ver), TRUE);
    pack(top, ver);
    if (!si.arch.empty()) pack(top, badge(si.arch, "badge-blue"));
    for (const char* flag : {"SMP", "PREEMPT"}) {
        if (si.kernel_flags.find(flag) != std::string::npos) pack(top, badge(flag, "badge-gray"));
    }
    gtk_box_pack_start(GTK_BOX(card), top, FALSE, FALSE, 2);

    card_add_kv(card, "Built", si.build_date);
    card_add_kv(card, "Built by", si.build_user);
    card_add_kv(card, "Compiler", si.compiler);
    card_add_kv(card, "Boot line", si.cmdline, true);
    return card;
}

GtkWidget* distro_note(const std::string& note) {
    GtkWidget* label = wrapped_label(note, "note");
    gtk_label_set_selectable(GTK_LABEL(label), TRUE);
    // The note begins where the value above it begins.
    gtk_widget_set_margin_start(label, KEY_WIDTH + KEY_GAP);
    return label;
}

GtkWidget* module_counts_row(size_t module_count, size_t modules_in_use, bool modules_readable) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    pack(row, key_label("Modules"));
    if (modules_readable) {
        pack(row, badge(std::to_string(module_count) + " loaded", "badge-green"));
        pack(row, badge(std::to_string(modules_in_use) + " in use", "badge-blue"));
    } else {
        pack(row, badge("not readable", "badge-red"));
        GtkWidget* pointer = gtk_label_new("see the Modules tab");
        theme_add_class(pointer, "note");
        pack(row, pointer);
    }
    return row;
}

GtkWidget* system_card(const SystemInfo& si, size_t module_count, size_t modules_in_use, bool modules_readable) {
    GtkWidget* card = card_with_title("SYSTEM");
    card_add_kv(card, "Distribution", si.distro);
    if (!si.distro_note.empty()) pack(card, distro_note(si.distro_note));
    card_add_kv(card, "Hostname", si.hostname);
    card_add_kv(card, "Uptime", si.uptime);
    pack(card, module_counts_row(module_count, modules_in_use, modules_readable));
    return card;
}

// ---- System tab: the installed kernels, and the page ----------------------------------------------------------------

GtkWidget* kernel_badge(const InstalledKernel& k) {
    if (k.running) return badge("running", "badge-green");
    if (k.has_image && k.has_modules) return badge("image + modules", "badge-gray");
    return badge(k.has_image ? "image only" : "modules only", "badge-amber");
}

GtkWidget* installed_row(const InstalledKernel& k) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    GtkWidget* name = left_label(k.version, k.running ? "val" : "key");
    gtk_label_set_selectable(GTK_LABEL(name), TRUE);
    gtk_widget_set_size_request(name, 260, -1);
    pack(row, name);
    pack(row, kernel_badge(k));
    return row;
}

/// Returns the closed expander over the rows of what is left of kernels that are gone.
GtkWidget* leftovers_expander(GtkWidget* leftovers, size_t leftover_count) {
    const std::string text =
        std::to_string(leftover_count) + " module tree" + (leftover_count == 1 ? "" : "s") + " without a kernel image";
    GtkWidget* expander = gtk_expander_new(text.c_str());
    gtk_container_add(GTK_CONTAINER(expander), leftovers);
    gtk_expander_set_expanded(GTK_EXPANDER(expander), FALSE);
    gtk_widget_set_margin_top(expander, 6);
    // Without this, the keyboard gets into what a closed expander hides.
    g_object_bind_property(expander, "expanded", leftovers, "sensitive", G_BINDING_SYNC_CREATE);
    return expander;
}

GtkWidget* installed_kernels_card(const SystemInfo& si) {
    GtkWidget* card = card_with_title("INSTALLED KERNELS");
    if (si.installed.empty()) pack(card, left_label("none found", "note"));

    const auto belongs_in_card = [](const InstalledKernel& k) { return k.has_image || k.running; };
    const auto in_card = static_cast<size_t>(std::ranges::count_if(si.installed, belongs_in_card));
    const size_t leftover_count = si.installed.size() - in_card;
    GtkWidget* leftovers = nullptr;
    if (leftover_count != 0) {
        leftovers = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
        gtk_widget_set_margin_top(leftovers, 4);
    }
    for (const InstalledKernel& k : si.installed) pack(belongs_in_card(k) ? card : leftovers, installed_row(k));
    if (leftovers) pack(card, leftovers_expander(leftovers, leftover_count));

    if (!si.installed_note.empty()) {
        GtkWidget* note = wrapped_label(si.installed_note, "note");
        gtk_widget_set_margin_top(note, 4);
        pack(card, note);
    }
    return card;
}

GtkWidget* build_system_tab(const SystemInfo& si, size_t module_count, size_t modules_in_use, bool modules_readable) {
    GtkWidget* col = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    set_margins(col, 16, 16, 14, 16);
    pack(col, running_kernel_card(si));
    pack(col, system_card(si, module_count, modules_in_use, modules_readable));
    pack(col, installed_kernels_card(si));
    return scrolled(col);
}

// ---- Modules tab: the detail pane -----------------------------------------------------------------------------------

/// Moves the divider so that the detail pane just holds its content and the table takes the rest. An idle callback,
/// once for each new content: by then the pane has its size.
gboolean fit_detail_pane(gpointer) {
    constexpr int CHROME = 34;
    constexpr int MIN_LIST = 170;
    constexpr int MIN_DETAIL = 70;
    if (!g_mod_pane || !g_detail_box) return G_SOURCE_REMOVE;

    const int total = gtk_widget_get_allocated_height(g_mod_pane);
    const int width = gtk_widget_get_allocated_width(g_mod_pane);
    if (total < LEAST_PANE_HEIGHT || width < LEAST_PANE_WIDTH) return G_SOURCE_REMOVE;

    int natural = 0;
    gtk_widget_get_preferred_height_for_width(g_detail_box, width - 2 * DETAIL_MARGIN, nullptr, &natural);
    const int pos = std::min(std::max(total - natural - CHROME, MIN_LIST), total - MIN_DETAIL);
    gtk_paned_set_position(GTK_PANED(g_mod_pane), pos);
    return G_SOURCE_REMOVE;
}

void clear_detail() {
    gtk_container_foreach(
        GTK_CONTAINER(g_detail_box), [](GtkWidget* child, gpointer) { gtk_widget_destroy(child); }, nullptr);
}

void show_detail() {
    gtk_widget_show_all(g_detail_box);
    g_idle_add(fit_detail_pane, nullptr);
}

void show_detail_placeholder() {
    clear_detail();
    pack(g_detail_box, left_label("Select a module to see its details.", "note"));
    show_detail();
}

GtkWidget* module_head(const KernelModule& m) {
    GtkWidget* top = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    GtkWidget* name = left_label(m.name, "val-strong");
    gtk_label_set_selectable(GTK_LABEL(name), TRUE);
    pack(top, name);
    pack(top, badge(m.state, m.state == "Live" ? "badge-green" : "badge-amber"));
    pack(top, badge(format_size(m.size), "badge-gray"));
    if (in_use(m)) pack(top, badge("used by " + std::to_string(m.refcount), "badge-blue"));
    if (!m.license.empty()) pack(top, badge(m.license, "badge-purple"));
    return top;
}

/// Returns the grid of a module's parameters, of which there must be one. It is filled column by column.
GtkWidget* parameter_grid(const KernelModule& m) {
    const size_t n = m.parameters.size();
    const size_t cols = n <= 8 ? 1 : n <= 24 ? 2 : 3;
    const size_t rows = (n + cols - 1) / cols;

    GtkWidget* grid = gtk_grid_new();
    gtk_grid_set_column_spacing(GTK_GRID(grid), 18);
    // Screen readers get a grid's children in the reverse of the order in which they were attached.
    for (size_t i = n; i-- > 0;) {
        const auto& [name, value] = m.parameters[i];
        std::string text = name;
        text.append(" = ").append(value);
        GtkWidget* label = left_label(text, "mono");
        gtk_label_set_selectable(GTK_LABEL(label), TRUE);
        gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
        gtk_label_set_max_width_chars(GTK_LABEL(label), 34);
        gtk_grid_attach(GTK_GRID(grid), label, static_cast<int>(i / rows), static_cast<int>(i % rows), 1, 1);
    }
    return grid;
}

GtkWidget* parameters_row(const KernelModule& m) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, KEY_GAP);
    GtkWidget* key = key_label("Parameters");
    gtk_widget_set_valign(key, GTK_ALIGN_START);
    pack(row, key);
    pack_filling(row, parameter_grid(m));
    return row;
}

void show_module(const KernelModule& m) {
    clear_detail();
    pack(g_detail_box, module_head(m));
    if (!m.description.empty()) {
        GtkWidget* description = wrapped_label(m.description, "val");
        gtk_label_set_selectable(GTK_LABEL(description), TRUE);
        pack(g_detail_box, description);
    }
    card_add_kv(g_detail_box, "Used by", m.used_by);
    card_add_kv(g_detail_box, "Version", m.version);
    card_add_kv(g_detail_box, "Author", m.author);
    card_add_kv(g_detail_box, "Taint", m.taint);
    card_add_kv(g_detail_box, "srcversion", m.srcversion, true);
    card_add_kv(g_detail_box, "File", m.filename, true);
    if (!m.parameters.empty()) pack(g_detail_box, parameters_row(m));
    show_detail();
}

// ---- Modules tab: the selection -------------------------------------------------------------------------------------

/// Returns the height of the table without its titles.
int height_of_rows(GtkTreeView* view) {
    GdkRectangle rows;
    gtk_tree_view_get_visible_rect(view, &rows);
    return rows.height;
}

/// Returns the selected row's place, if a row is selected, from the upper edge of the part of the table in sight.
std::optional<GdkRectangle> selected_row(GtkTreeView* view) {
    GtkTreeModel* model = nullptr;
    GtkTreeIter iter;
    if (!gtk_tree_selection_get_selected(gtk_tree_view_get_selection(view), &model, &iter)) return {};
    GtkTreePath* path = gtk_tree_model_get_path(model, &iter);
    GdkRectangle row;
    gtk_tree_view_get_background_area(view, path, nullptr, &row);
    gtk_tree_path_free(path);
    return row;
}

/// Scrolls the table just so far that all of a row is in sight. GTK's own scrolling is animated, and stops half way
/// when the divider moves.
void bring_into_sight(GtkTreeView* view, const GdkRectangle& row) {
    const int below = row.y + row.height - height_of_rows(view);
    const int by = row.y < 0 ? row.y : std::clamp(below, 0, row.y);
    GtkAdjustment* place = gtk_scrollable_get_vadjustment(GTK_SCROLLABLE(view));
    gtk_adjustment_set_value(place, gtk_adjustment_get_value(place) + by);
}

/// Scrolls the table when a divider that moves up would hide the selected row. Where the user has scrolled away from
/// that row, the table stays.
void keep_selection_in_sight(GtkWidget* view, GdkRectangle*, gpointer) {
    const int height = height_of_rows(GTK_TREE_VIEW(view));
    const int before = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(view), HEIGHT_KEY));
    g_object_set_data(G_OBJECT(view), HEIGHT_KEY, GINT_TO_POINTER(height));
    if (height >= before) return;
    const std::optional<GdkRectangle> row = selected_row(GTK_TREE_VIEW(view));
    if (row && row->y < before && row->y + row->height > height) bring_into_sight(GTK_TREE_VIEW(view), *row);
}

/// Returns the selected module's index into `g_modules`, or -1.
int selected_index() {
    GtkTreeModel* model = nullptr;
    GtkTreeIter iter;
    int idx = -1;
    if (g_selection && gtk_tree_selection_get_selected(g_selection, &model, &iter)) {
        gtk_tree_model_get(model, &iter, INDEX, &idx, -1);
    }
    return idx;
}

void on_selection_changed(GtkTreeSelection* sel, gpointer) {
    // While the window is destroyed, the table clears its selection once more.
    if (!g_detail_box) return;
    GtkTreeModel* model = nullptr;
    GtkTreeIter iter;
    if (!gtk_tree_selection_get_selected(sel, &model, &iter)) {
        show_detail_placeholder();
        return;
    }
    int idx = -1;
    gtk_tree_model_get(model, &iter, INDEX, &idx, -1);
    // A reload replaces the modules first and the rows after them.
    if (idx < 0 || static_cast<size_t>(idx) >= g_modules.size()) return;
    KernelModule& m = g_modules[static_cast<size_t>(idx)];
    fill_module_details(m);
    show_module(m);
    GtkTreeView* view = gtk_tree_selection_get_tree_view(sel);
    if (const std::optional<GdkRectangle> row = selected_row(view)) bring_into_sight(view, *row);
}

/// Without this, modinfo would run for row after row: when the row with the cursor goes, GTK selects the next one, and
/// so on for as long as rows go.
void block_selection_handler() {
    if (g_selection) g_signal_handlers_block_by_func(g_selection, (gpointer)on_selection_changed, nullptr);
}

void unblock_selection_handler() {
    if (g_selection) g_signal_handlers_unblock_by_func(g_selection, (gpointer)on_selection_changed, nullptr);
}

// ---- Modules tab: the rows, the filter and the status ---------------------------------------------------------------

void fill_store() {
    block_selection_handler();
    gtk_list_store_clear(g_store);
    unblock_selection_handler();
    for (size_t i = 0; i < g_modules.size(); ++i) {
        const KernelModule& m = g_modules[i];
        gtk_list_store_insert_with_values(g_store, nullptr, -1, NAME, valid_utf8(m.name).get(), SIZE_TEXT,
                                          format_size(m.size).c_str(), SIZE, static_cast<guint64>(m.size), REFCOUNT,
                                          m.refcount, USED_BY, valid_utf8(m.used_by).get(), USED_FG,
                                          in_use(m) ? USED_FG_ACTIVE : USED_FG_IDLE, INDEX, static_cast<int>(i), -1);
    }
}

const char* filter_text() {
    return g_search ? gtk_entry_get_text(GTK_ENTRY(g_search)) : "";
}

gboolean row_visible(GtkTreeModel* model, GtkTreeIter* iter, gpointer) {
    const char* text = filter_text();
    if (!*text) return TRUE;

    gchar* name = nullptr;
    gchar* used = nullptr;
    gtk_tree_model_get(model, iter, NAME, &name, USED_BY, &used, -1);
    const Text needle(g_utf8_casefold(text, -1));
    bool hit = false;
    for (gchar* const value : {name, used}) {
        if (value && !hit) hit = std::strstr(Text(g_utf8_casefold(value, -1)).get(), needle.get());
        g_free(value);
    }
    return hit;
}

void update_module_status() {
    if (!g_mod_status) return;
    const int shown = gtk_tree_model_iter_n_children(g_filter, nullptr);
    std::string text = std::to_string(shown) + " of " + std::to_string(g_modules.size()) + " modules  ·  " +
                       std::to_string(count_in_use()) + " in use";
    const bool filtered = *filter_text();
    if (filtered) text += std::string("  ·  filter: ") + filter_text();
    gtk_label_set_text(GTK_LABEL(g_mod_status), text.c_str());
    // A pasted filter may be endless. Without this, the window would grow with it, and not shrink again.
    gtk_label_set_ellipsize(GTK_LABEL(g_mod_status), filtered ? PANGO_ELLIPSIZE_END : PANGO_ELLIPSIZE_NONE);
    gtk_label_set_single_line_mode(GTK_LABEL(g_mod_status), filtered);
}

void refilter() {
    const int before = selected_index();
    block_selection_handler();
    gtk_tree_model_filter_refilter(GTK_TREE_MODEL_FILTER(g_filter));
    const bool lost = selected_index() != before;
    if (lost) gtk_tree_selection_unselect_all(g_selection);
    unblock_selection_handler();
    if (lost) show_detail_placeholder();
    update_module_status();
}

void on_search_changed(GtkEditable*, gpointer) {
    refilter();
}

// ---- Modules tab: the list or an error ------------------------------------------------------------------------------

/// Shows why there is no list: a title and, behind the first line feed of `error`, an explanation.
void set_module_error(const std::string& error) {
    const size_t cut = std::min(error.find('\n'), error.size());
    const std::string text = cut < error.size() ? error.substr(cut + 1) : "";
    gtk_label_set_text(GTK_LABEL(g_mod_error_title), valid_utf8(error.substr(0, cut)).get());
    gtk_label_set_text(GTK_LABEL(g_mod_error_text), valid_utf8(text).get());
}

/// Shows the error panel in the table's place.
void show_module_error(const std::string& error) {
    set_module_error(error);
    gtk_widget_show_all(g_mod_error);
    gtk_widget_hide(g_mod_pane);
    gtk_widget_hide(g_mod_status);
    gtk_widget_set_sensitive(g_search, FALSE);
}

/// Shows the table in the error panel's place.
void show_module_list() {
    gtk_widget_hide(g_mod_error);
    gtk_widget_show(g_mod_pane);
    gtk_widget_show(g_mod_status);
    gtk_widget_set_sensitive(g_search, TRUE);
}

void reload_modules(GtkButton*, gpointer) {
    std::string error;
    g_modules = get_loaded_modules(error);
    if (error.empty()) {
        show_module_list();
    } else {
        show_module_error(error);
    }
    fill_store();
    refilter();
    show_detail_placeholder();
}

GtkWidget* centred_label(const char* css_class) {
    GtkWidget* label = gtk_label_new("");
    gtk_label_set_justify(GTK_LABEL(label), GTK_JUSTIFY_CENTER);
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_widget_set_halign(label, GTK_ALIGN_CENTER);
    theme_add_class(label, css_class);
    return label;
}

GtkWidget* module_error_panel() {
    g_mod_error = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_widget_set_valign(g_mod_error, GTK_ALIGN_CENTER);
    gtk_widget_set_halign(g_mod_error, GTK_ALIGN_CENTER);

    GtkWidget* card = theme_card();
    gtk_widget_set_size_request(card, 460, -1);
    GtkWidget* badge_row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    gtk_widget_set_halign(badge_row, GTK_ALIGN_CENTER);
    pack(badge_row, badge("no access", "badge-amber"));
    pack(card, badge_row);

    g_mod_error_title = centred_label("val-strong");
    gtk_widget_set_margin_top(g_mod_error_title, 4);
    pack(card, g_mod_error_title);
    g_mod_error_text = centred_label("status");
    gtk_label_set_max_width_chars(GTK_LABEL(g_mod_error_text), 52);
    gtk_label_set_selectable(GTK_LABEL(g_mod_error_text), TRUE);
    pack(card, g_mod_error_text);
    pack(g_mod_error, card);
    return g_mod_error;
}

// ---- Modules tab: the table -----------------------------------------------------------------------------------------

void add_text_column(GtkWidget* view, const char* title, int col, int sort_col, float xalign, int min_width,
                     bool colour_by_use) {
    GtkCellRenderer* renderer = gtk_cell_renderer_text_new();
    g_object_set(renderer, "xalign", static_cast<double>(xalign), nullptr);
    GtkTreeViewColumn* column = gtk_tree_view_column_new_with_attributes(title, renderer, "text", col, nullptr);
    if (colour_by_use) gtk_tree_view_column_add_attribute(column, renderer, "foreground", USED_FG);
    gtk_tree_view_column_set_sort_column_id(column, sort_col);
    gtk_tree_view_column_set_resizable(column, TRUE);
    gtk_tree_view_column_set_min_width(column, min_width);
    gtk_tree_view_column_set_alignment(column, xalign);
    gtk_tree_view_append_column(GTK_TREE_VIEW(view), column);
}

/// Returns the empty table. Kept on purpose: the store and the filter of a closed window are not released.
GtkWidget* module_table() {
    g_store = gtk_list_store_new(COLUMNS, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_UINT64, G_TYPE_INT, G_TYPE_STRING,
                                 G_TYPE_STRING, G_TYPE_INT);
    g_filter = gtk_tree_model_filter_new(GTK_TREE_MODEL(g_store), nullptr);
    gtk_tree_model_filter_set_visible_func(GTK_TREE_MODEL_FILTER(g_filter), row_visible, nullptr, nullptr);
    GtkTreeModel* sorted = gtk_tree_model_sort_new_with_model(g_filter);
    GtkWidget* view = gtk_tree_view_new_with_model(sorted);
    g_object_unref(sorted);
    gtk_tree_view_set_search_column(GTK_TREE_VIEW(view), NAME);

    add_text_column(view, "Module", NAME, NAME, 0.0F, 170, false);
    add_text_column(view, "Size", SIZE_TEXT, SIZE, 1.0F, 80, false);
    add_text_column(view, "Used", REFCOUNT, REFCOUNT, 1.0F, 55, true);
    add_text_column(view, "Used by", USED_BY, USED_BY, 0.0F, 220, false);

    g_selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(view));
    g_signal_connect(g_selection, "changed", G_CALLBACK(on_selection_changed), nullptr);
    g_signal_connect_after(view, "size-allocate", G_CALLBACK(keep_selection_in_sight), nullptr);
    return view;
}

// ---- Modules tab: the page ------------------------------------------------------------------------------------------

GtkWidget* module_toolbar() {
    GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    theme_add_class(bar, "toolbar");
    g_search = gtk_entry_new();
    gtk_entry_set_placeholder_text(GTK_ENTRY(g_search), "Filter by module name or user…");
    set_accessible_name(g_search, "Filter by module name or user");
    g_signal_connect(g_search, "changed", G_CALLBACK(on_search_changed), nullptr);
    pack_filling(bar, g_search);
    GtkWidget* reload = gtk_button_new_with_label("Reload");
    g_signal_connect(reload, "clicked", G_CALLBACK(reload_modules), nullptr);
    pack(bar, reload);
    return bar;
}

/// Leads the keyboard from the table to the detail pane. Without this, GTK goes to the smaller half first, and stops at
/// an empty detail pane.
void set_focus_order(GtkWidget* list_scroll, GtkWidget* detail_scroll) {
    GList second = {detail_scroll, nullptr, nullptr};
    GList first = {list_scroll, &second, nullptr};
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    gtk_container_set_focus_chain(GTK_CONTAINER(g_mod_pane), &first);
    G_GNUC_END_IGNORE_DEPRECATIONS
    gtk_widget_set_can_focus(detail_scroll, FALSE);
    // A screen reader calls the table by its status.
    gtk_label_set_mnemonic_widget(GTK_LABEL(g_mod_status), gtk_bin_get_child(GTK_BIN(list_scroll)));
}

GtkWidget* build_modules_tab() {
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    pack(box, module_toolbar());
    g_mod_status = left_label("", "status");
    set_margins(g_mod_status, 14, 0, 6, 4);
    pack(box, g_mod_status);
    pack_filling(box, module_error_panel());

    GtkWidget* list_scroll = scrolled(module_table());
    g_detail_box = theme_card();
    set_margins(g_detail_box, DETAIL_MARGIN, DETAIL_MARGIN, 10, 10);
    // Keeps the card at its own height in a pane that is higher.
    GtkWidget* detail_holder = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    pack(detail_holder, g_detail_box);
    GtkWidget* detail_scroll = scrolled(detail_holder);

    g_mod_pane = gtk_paned_new(GTK_ORIENTATION_VERTICAL);
    gtk_paned_pack1(GTK_PANED(g_mod_pane), list_scroll, TRUE, FALSE);
    gtk_paned_pack2(GTK_PANED(g_mod_pane), detail_scroll, FALSE, FALSE);
    gtk_paned_set_position(GTK_PANED(g_mod_pane), FIRST_LIST_HEIGHT);
    pack_filling(box, g_mod_pane);
    set_focus_order(list_scroll, detail_scroll);
    return box;
}

// ---- Permission bar -------------------------------------------------------------------------------------------------

gboolean restore_copy_label(gpointer btn) {
    if (btn && btn == g_copied_button && GTK_IS_BUTTON(btn)) gtk_button_set_label(GTK_BUTTON(btn), "Copy");
    return G_SOURCE_REMOVE;
}

/// Puts the command of the button `btn` on the clipboard, and says so for two seconds.
void copy_command(GtkButton* btn) {
    const auto* cmd = static_cast<const std::string*>(g_object_get_data(G_OBJECT(btn), COMMAND_KEY));
    if (!cmd) return;
    gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), cmd->c_str(), -1);
    gtk_button_set_label(btn, "Copied");
    g_set_weak_pointer(&g_copied_button, GTK_WIDGET(btn));
    g_timeout_add_seconds(2, restore_copy_label, btn);
}

/// A click on the command copies it and selects all of it. GTK's own handling would move the cursor.
gboolean on_command_pressed(GtkWidget* entry, GdkEventButton*, gpointer) {
    auto* copy = static_cast<GtkButton*>(g_object_get_data(G_OBJECT(entry), COPY_BUTTON_KEY));
    if (copy) copy_command(copy);
    gtk_widget_grab_focus(entry);
    gtk_editable_select_region(GTK_EDITABLE(entry), 0, -1);
    return TRUE;
}

GtkWidget* command_row(const std::string& cmd) {
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 8);
    GtkWidget* entry = gtk_entry_new();
    gtk_entry_set_text(GTK_ENTRY(entry), cmd.c_str());
    gtk_editable_set_editable(GTK_EDITABLE(entry), FALSE);
    gtk_entry_set_width_chars(GTK_ENTRY(entry), 46);
    theme_add_class(entry, "mono");
    set_accessible_name(entry, "Command");
    pack_filling(row, entry);

    GtkWidget* copy = gtk_button_new_with_label("Copy");
    g_object_set_data_full(G_OBJECT(copy), COMMAND_KEY, new std::string(cmd),
                           [](gpointer owned) { delete static_cast<std::string*>(owned); });
    g_signal_connect(copy, "clicked", G_CALLBACK(copy_command), nullptr);
    pack(row, copy);

    g_object_set_data(G_OBJECT(entry), COPY_BUTTON_KEY, copy);
    g_signal_connect(entry, "button-press-event", G_CALLBACK(on_command_pressed), nullptr);
    return row;
}

/// Returns the card that tells a confined user how to let the program see the modules.
GtkWidget* permission_bar() {
    GtkWidget* hint = theme_card();
    set_margins(hint, 14, 14, 10, 0);
    pack(hint, wrapped_label("The module list and the host system details need one permission. Run this in a terminal, "
                             "then reopen this window (click the command to copy it):",
                             "key"));
    pack(hint, command_row(valid_utf8(snap_connect_command()).get()));
    return hint;
}

// ---- The window -----------------------------------------------------------------------------------------------------

GtkWidget* buttons(GtkWidget* window) {
    GtkWidget* btn_box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    set_margins(btn_box, 14, 14, 8, 10);
    pack_at_end(btn_box, close_button(window));
    return btn_box;
}

/// Hides the tabs before they go. Without this, GTK tells screen readers of each, looks for a label that is gone, and
/// complains on the terminal.
void on_notebook_destroy(GtkWidget* notebook, gpointer) {
    gtk_notebook_set_show_tabs(GTK_NOTEBOOK(notebook), FALSE);
}

void on_destroy(GtkWidget*, gpointer) {
    system_win = nullptr;
    g_store = nullptr;
    g_filter = nullptr;
    g_selection = nullptr;
    g_search = nullptr;
    g_detail_box = nullptr;
    g_mod_status = nullptr;
    g_mod_error = nullptr;
    g_mod_error_title = nullptr;
    g_mod_error_text = nullptr;
    g_mod_pane = nullptr;
    g_modules.clear();
}

}  // namespace

void show_system_window() {
    if (system_win) {
        gtk_window_present(GTK_WINDOW(system_win));
        return;
    }
    std::string mod_error;
    g_modules = get_loaded_modules(mod_error);
    const SystemInfo si = get_system_info();

    GtkWidget* win = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(win), "System & Kernel Modules");
    gtk_window_set_default_size(GTK_WINDOW(win), 820, 720);
    gtk_window_set_position(GTK_WINDOW(win), GTK_WIN_POS_CENTER);
    theme_apply(win);

    GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_container_add(GTK_CONTAINER(win), vbox);
    const std::string subtitle = si.running_kernel + (si.distro.empty() ? "" : "  ·  " + si.distro);
    pack(vbox, theme_header("System & Kernel Modules", valid_utf8(subtitle).get(), "acc-system"));

    GtkWidget* notebook = gtk_notebook_new();
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook),
                             build_system_tab(si, g_modules.size(), count_in_use(), mod_error.empty()),
                             gtk_label_new("System"));
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), build_modules_tab(), gtk_label_new("Modules"));
    g_signal_connect(notebook, "destroy", G_CALLBACK(on_notebook_destroy), nullptr);
    pack_filling(vbox, notebook);
    if (running_as_snap() && !mod_error.empty()) pack(vbox, permission_bar());
    pack(vbox, buttons(win));

    g_signal_connect(win, "delete-event", G_CALLBACK(destroy_on_delete), nullptr);
    g_signal_connect(win, "destroy", G_CALLBACK(on_destroy), nullptr);
    gtk_widget_show_all(win);
    system_win = win;

    fill_store();
    refilter();
    show_detail_placeholder();
    if (mod_error.empty()) {
        gtk_widget_hide(g_mod_error);
    } else {
        show_module_error(mod_error);
    }
}

void close_system_window() {
    if (!system_win) return;
    gtk_widget_destroy(system_win);
    system_win = nullptr;
}
