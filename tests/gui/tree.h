// SPDX-License-Identifier: MIT
// What the tests of the windows share: a tree of widgets written down as text, a way to find one widget in it, a main
// loop that runs until something is true, and a watch over the libraries' warnings. Main thread only.
#pragma once

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// ---- The main loop --------------------------------------------------------------------------------------------------

/// Runs the main loop until `done`, for half a minute at most. Returns whether it came to that.
inline bool run_loop_until(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    // Wakes the loop, so that what another thread did is seen, too.
    const guint tick = g_timeout_add(
        2, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    bool in_time = true;
    while (!done() && in_time) {
        g_main_context_iteration(nullptr, TRUE);
        in_time = std::chrono::steady_clock::now() < deadline;
    }
    g_source_remove(tick);
    return in_time;
}

/// Runs the main loop until `widget`, which is shown, has been drawn once more.
inline bool run_loop_until_drawn(GtkWidget* widget) {
    bool drawn = false;
    const gulong handler =
        g_signal_connect_after(widget, "draw", G_CALLBACK(+[](GtkWidget*, cairo_t*, bool* seen) -> gboolean {
                                   *seen = true;
                                   return FALSE;
                               }),
                               &drawn);
    gtk_widget_queue_resize(widget);
    gtk_widget_queue_draw(widget);
    const bool in_time = run_loop_until([&drawn] { return drawn; });
    g_signal_handler_disconnect(widget, handler);
    return in_time;
}

// ---- Warnings -------------------------------------------------------------------------------------------------------

/// From here on, each warning of a library is a failure of the test that runs. Once for each process.
inline void fail_on_warnings() {
    g_log_set_writer_func(
        [](GLogLevelFlags level, const GLogField* fields, gsize count, gpointer) {
            if (level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING)) {
                gchar* text = g_log_writer_format_fields(level, fields, count, FALSE);
                ADD_FAILURE() << text;
                g_free(text);
            }
            return G_LOG_WRITER_HANDLED;
        },
        nullptr, nullptr);
}

// ---- Trees ----------------------------------------------------------------------------------------------------------

/// Returns what `widget` holds, as the eye meets it: from left to right, an expander's head before its content, and a
/// grid row by row.
inline std::vector<GtkWidget*> children_of(GtkWidget* widget) {
    std::vector<GtkWidget*> children;
    if (!GTK_IS_CONTAINER(widget)) return children;
    GList* list = gtk_container_get_children(GTK_CONTAINER(widget));
    for (GList* child = list; child; child = child->next) children.push_back(GTK_WIDGET(child->data));
    g_list_free(list);
    if (GTK_IS_EXPANDER(widget)) std::ranges::reverse(children);
    if (GTK_IS_GRID(widget)) {
        const auto place = [widget](GtkWidget* child) {
            int left = 0;
            int top = 0;
            gtk_container_child_get(GTK_CONTAINER(widget), child, "left-attach", &left, "top-attach", &top, nullptr);
            return std::pair(top, left);
        };
        std::ranges::sort(children, {}, place);
    }
    return children;
}

/// Returns the widget to which the child numbers `path` lead from `top`, or null.
inline GtkWidget* descendant(GtkWidget* top, std::initializer_list<size_t> path) {
    for (const size_t number : path) {
        const std::vector<GtkWidget*> children = top ? children_of(top) : std::vector<GtkWidget*>{};
        top = number < children.size() ? children[number] : nullptr;
    }
    return top;
}

/// Returns `top` and every widget below it, those that GTK made for itself as well.
inline std::vector<GtkWidget*> all_widgets(GtkWidget* top) {
    std::vector<GtkWidget*> found = {top};
    for (size_t i = 0; i < found.size(); ++i) {
        if (!GTK_IS_CONTAINER(found[i])) continue;
        gtk_container_forall(
            GTK_CONTAINER(found[i]),
            [](GtkWidget* child, gpointer list) { static_cast<std::vector<GtkWidget*>*>(list)->push_back(child); },
            &found);
    }
    return found;
}

/// Returns the windows that there are. (A selector's menu has one of its own, of another type.)
inline std::vector<GtkWidget*> open_windows() {
    std::vector<GtkWidget*> windows;
    GList* list = gtk_window_list_toplevels();
    for (GList* window = list; window; window = window->next) {
        const bool top = gtk_window_get_window_type(GTK_WINDOW(window->data)) == GTK_WINDOW_TOPLEVEL;
        if (top) windows.push_back(GTK_WIDGET(window->data));
    }
    g_list_free(list);
    return windows;
}

/// Closes `window` as the window manager does. Returns whether the window's handler kept GTK from its own way.
inline bool ask_to_close(GtkWidget* window) {
    GdkEvent* event = gdk_event_new(GDK_DELETE);
    event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
    event->any.send_event = TRUE;
    gboolean handled = FALSE;
    // Not through gtk_widget_event(), which calls the event handled whenever the window is gone.
    g_signal_emit_by_name(window, "delete-event", event, &handled);
    gdk_event_free(event);
    return handled;
}

/// Returns the style classes that the program gave `widget`, without those that GTK gives by itself.
inline std::set<std::string> classes_of(GtkWidget* widget) {
    std::set<std::string> classes;
    GList* list = gtk_style_context_list_classes(gtk_widget_get_style_context(widget));
    for (GList* name = list; name; name = name->next) classes.insert(static_cast<const char*>(name->data));
    g_list_free(list);
    for (const char* own : {"horizontal", "vertical", "text-button", "link", "flat", "frame", "background"})
        classes.erase(own);
    return classes;
}

inline std::string combo_rows(GtkWidget* combo) {
    std::string rows;
    GtkTreeModel* model = gtk_combo_box_get_model(GTK_COMBO_BOX(combo));
    GtkTreeIter row;
    for (gboolean more = gtk_tree_model_get_iter_first(model, &row); more;
         more = gtk_tree_model_iter_next(model, &row)) {
        gchar* text = nullptr;
        gchar* id = nullptr;
        gtk_tree_model_get(model, &row, 0, &text, 1, &id, -1);
        rows += std::string(rows.empty() ? "" : ",") + (id ? id : "") + ":" + (text ? text : "");
        g_free(text);
        g_free(id);
    }
    return rows;
}

/// Returns a property's value as text; empty for what is an object or a boxed value.
inline std::string value_text(const GValue* value) {
    if (G_VALUE_HOLDS_BOOLEAN(value)) return g_value_get_boolean(value) ? "true" : "false";
    if (G_VALUE_HOLDS_STRING(value)) {
        const gchar* text = g_value_get_string(value);
        return text ? '"' + std::string(text) + '"' : "null";
    }
    if (G_VALUE_HOLDS_ENUM(value)) {
        auto* names = static_cast<GEnumClass*>(g_type_class_ref(G_VALUE_TYPE(value)));
        const GEnumValue* name = g_enum_get_value(names, g_value_get_enum(value));
        const std::string nick = name ? name->value_nick : "?";
        g_type_class_unref(names);
        return nick;
    }
    GValue text = G_VALUE_INIT;
    g_value_init(&text, G_TYPE_STRING);
    std::string written;
    if (G_VALUE_HOLDS_DOUBLE(value) || G_VALUE_HOLDS_FLOAT(value)) {
        GValue wide = G_VALUE_INIT;
        g_value_init(&wide, G_TYPE_DOUBLE);
        g_value_transform(value, &wide);
        char buffer[G_ASCII_DTOSTR_BUF_SIZE];
        written = g_ascii_formatd(buffer, sizeof buffer, "%g", g_value_get_double(&wide));
    } else if (!G_VALUE_HOLDS_OBJECT(value) && !G_VALUE_HOLDS_BOXED(value) && g_value_transform(value, &text)) {
        written = g_value_get_string(&text);
    }
    g_value_unset(&text);
    return written;
}

/// Returns the properties of `object` that can be set and have a plain value, by name.
inline std::map<std::string, std::string> properties_of(GObject* object) {
    // What follows from other properties, from the place in the tree, or from the display.
    static const std::set<std::string> derived = {
        "can-focus", "events",      "expand",      "focus-visible",  "has-default",       "has-focus", "has-tooltip",
        "is-focus",  "margin",      "margin-left", "margin-right",   "mnemonics-visible", "active-id", "scale-factor",
        "style",     "hexpand-set", "vexpand-set", "tooltip-markup", "icon-size",         "visible"};
    std::map<std::string, std::string> properties;
    guint count = 0;
    GParamSpec** specs = g_object_class_list_properties(G_OBJECT_GET_CLASS(object), &count);
    for (guint i = 0; i < count; ++i) {
        const GParamSpec* spec = specs[i];
        constexpr int both = G_PARAM_READABLE | G_PARAM_WRITABLE;
        if ((spec->flags & both) != both || derived.contains(spec->name)) continue;
        if (GTK_IS_EXPANDER(object) && std::string_view(spec->name) == "label") continue;
        GValue value = G_VALUE_INIT;
        g_value_init(&value, spec->value_type);
        g_object_get_property(object, spec->name, &value);
        properties[spec->name] = value_text(&value);
        g_value_unset(&value);
    }
    g_free(specs);
    return properties;
}

/// Returns what distinguishes `object` from a new one of its type, but for the properties in `left_out`.
inline std::string settings_of(GObject* object, const std::set<std::string>& left_out = {}) {
    auto* fresh = G_OBJECT(g_object_new(G_OBJECT_TYPE(object), nullptr));
    g_object_ref_sink(fresh);
    const auto usual = properties_of(fresh);
    std::string text;
    for (const auto& [name, value] : properties_of(object)) {
        if (value == usual.at(name) || left_out.contains(name)) continue;
        if (value == "true" || value == "false") {
            text += (value == "true" ? " " : " !") + name;
        } else {
            text += ' ' + name + '=' + value;
        }
    }
    if (GTK_IS_WIDGET(fresh)) gtk_widget_destroy(GTK_WIDGET(fresh));
    g_object_unref(fresh);
    return text;
}

/// Returns what distinguishes `widget` from a new one of its type.
inline std::string settings_of(GtkWidget* widget) {
    return (gtk_widget_get_visible(widget) ? "" : " hidden") + settings_of(G_OBJECT(widget));
}

/// Returns the type of a column's renderer, the model's columns that it takes properties from, and its settings.
inline std::string describe_renderer(GtkTreeViewColumn* column, GtkCellRenderer* renderer) {
    GtkCellArea* area = gtk_cell_layout_get_area(GTK_CELL_LAYOUT(column));
    std::string line = G_OBJECT_TYPE_NAME(renderer);
    std::set<std::string> taken;
    guint count = 0;
    GParamSpec** specs = g_object_class_list_properties(G_OBJECT_GET_CLASS(renderer), &count);
    for (guint i = 0; i < count; ++i) {
        const std::string name = specs[i]->name;
        const int from = gtk_cell_area_attribute_get_column(area, renderer, name.c_str());
        if (from < 0) continue;
        line += ' ' + name + "<-" + std::to_string(from);
        taken.insert({name, name + "-set"});
    }
    g_free(specs);
    return line + settings_of(G_OBJECT(renderer), taken);
}

/// Returns a line for each column of a table and one for each renderer in it.
inline std::string describe_columns(GtkTreeView* view, const std::string& indent) {
    std::string lines;
    GList* columns = gtk_tree_view_get_columns(view);
    for (GList* at = columns; at; at = at->next) {
        auto* column = GTK_TREE_VIEW_COLUMN(at->data);
        lines += indent + "GtkTreeViewColumn" + settings_of(G_OBJECT(column)) + '\n';
        GList* renderers = gtk_cell_layout_get_cells(GTK_CELL_LAYOUT(column));
        for (GList* cell = renderers; cell; cell = cell->next) {
            lines += indent + "  " + describe_renderer(column, GTK_CELL_RENDERER(cell->data)) + '\n';
        }
        g_list_free(renderers);
    }
    g_list_free(columns);
    return lines;
}

/// Returns where in a notebook, a grid or a paned `widget` is; empty if it is in none.
inline std::string place_of(GtkWidget* parent, GtkWidget* widget) {
    if (GTK_IS_NOTEBOOK(parent)) {
        const gchar* tab = gtk_notebook_get_tab_label_text(GTK_NOTEBOOK(parent), widget);
        return tab ? " [tab \"" + std::string(tab) + "\"]" : " [no tab]";
    }
    if (GTK_IS_GRID(parent)) {
        int left = 0, top = 0, width = 0, height = 0;
        gtk_container_child_get(GTK_CONTAINER(parent), widget, "left-attach", &left, "top-attach", &top, "width",
                                &width, "height", &height, nullptr);
        const std::string size =
            width == 1 && height == 1 ? "" : " size " + std::to_string(width) + "," + std::to_string(height);
        return " [at " + std::to_string(left) + "," + std::to_string(top) + size + "]";
    }
    if (GTK_IS_PANED(parent)) {
        gboolean resize = FALSE;
        gboolean shrink = FALSE;
        gtk_container_child_get(GTK_CONTAINER(parent), widget, "resize", &resize, "shrink", &shrink, nullptr);
        const bool first = gtk_paned_get_child1(GTK_PANED(parent)) == widget;
        return std::string(first ? " [first" : " [second") + (resize ? " resize" : "") + (shrink ? " shrink" : "") +
               "]";
    }
    return "";
}

inline std::string packing_of(GtkWidget* widget) {
    GtkWidget* parent = gtk_widget_get_parent(widget);
    if (!parent) return "";
    if (!GTK_IS_BOX(parent)) return place_of(parent, widget);
    gboolean expand = FALSE;
    gboolean fill = FALSE;
    guint padding = 0;
    GtkPackType type = GTK_PACK_START;
    gtk_box_query_child_packing(GTK_BOX(parent), widget, &expand, &fill, &padding, &type);
    return std::string(type == GTK_PACK_START ? " [start" : " [end") + (expand ? " expand" : "") +
           (fill ? " fill" : "") + (padding ? " padding " + std::to_string(padding) : "") + "]";
}

/// What a window was like at some moment.
struct WindowState {
    std::string title;
    int width;
    int height;
    bool empty;
};

inline WindowState state_of(GtkWidget* window) {
    WindowState state{};
    if (const gchar* title = gtk_window_get_title(GTK_WINDOW(window))) state.title = title;
    gtk_window_get_default_size(GTK_WINDOW(window), &state.width, &state.height);
    state.empty = !gtk_bin_get_child(GTK_BIN(window));
    return state;
}

/// Writes down `widget` and what it holds, a line for each widget: its type and style classes, how it is packed, and
/// every property in which it differs from a new one. A widget that is not shown says so. The first line is empty, so
/// that the expected text can begin on a line of its own.
inline std::string describe(GtkWidget* widget, size_t depth = 0) {
    std::string line = depth == 0 ? "\n" : "";
    line += std::string(2 * depth, ' ') + G_OBJECT_TYPE_NAME(widget);
    for (const std::string& name : classes_of(widget)) line += '.' + name;
    line += packing_of(widget) + settings_of(widget);
    const bool combo = GTK_IS_COMBO_BOX(widget);
    if (combo) line += " rows=" + combo_rows(widget);
    line += '\n';
    // A button's label and a selector's button are GTK's own.
    if (combo || GTK_IS_BUTTON(widget)) return line;
    if (GTK_IS_TREE_VIEW(widget)) line += describe_columns(GTK_TREE_VIEW(widget), std::string(2 * depth + 2, ' '));
    for (GtkWidget* child : children_of(widget)) line += describe(child, depth + 1);
    return line;
}

// ---- Signals --------------------------------------------------------------------------------------------------------

/// Runs `open`, and `look` on each window at the moment when it comes into view.
inline void look_at_windows_when_shown(const std::function<void()>& open, std::function<void(GtkWidget*)> look) {
    const guint show = g_signal_lookup("show", GTK_TYPE_WIDGET);
    const gulong hook = g_signal_add_emission_hook(
        show, 0,
        [](GSignalInvocationHint*, guint, const GValue* values, gpointer data) -> gboolean {
            auto* widget = static_cast<GtkWidget*>(g_value_get_object(values));
            const bool window =
                GTK_IS_WINDOW(widget) && gtk_window_get_window_type(GTK_WINDOW(widget)) == GTK_WINDOW_TOPLEVEL;
            if (window) (*static_cast<std::function<void(GtkWidget*)>*>(data))(widget);
            return TRUE;
        },
        &look, nullptr);
    open();
    g_signal_remove_emission_hook(show, hook);
}

/// Returns whether `signal` of `widget` calls `function` with `data`.
template <class Function>
bool calls(GtkWidget* widget, const char* signal, Function* function, gpointer data) {
    constexpr int match = G_SIGNAL_MATCH_ID | G_SIGNAL_MATCH_FUNC | G_SIGNAL_MATCH_DATA;
    const guint id = g_signal_lookup(signal, G_OBJECT_TYPE(widget));
    return g_signal_handler_find(widget, static_cast<GSignalMatchType>(match), id, 0, nullptr,
                                 reinterpret_cast<gpointer>(function), data) != 0;
}

// ---- Lives ----------------------------------------------------------------------------------------------------------

/// Counts how many of the widgets and other objects that it was shown are still alive.
class Lives {
  public:
    Lives() = default;
    ~Lives() {
        for (GObject* object : alive_) g_object_weak_unref(object, forget, this);
    }
    Lives(const Lives&) = delete;
    Lives& operator=(const Lives&) = delete;

    /// Adds `top` and everything below it.
    void watch(GtkWidget* top) {
        for (GtkWidget* widget : all_widgets(top)) watch_object(widget);
    }
    /// Adds an object, which may be no widget.
    void watch_object(gpointer object) {
        if (alive_.insert(G_OBJECT(object)).second) g_object_weak_ref(G_OBJECT(object), forget, this);
    }
    size_t count() const { return alive_.size(); }
    bool holds(gpointer object) const { return alive_.contains(static_cast<GObject*>(object)); }

  private:
    static void forget(gpointer self, GObject* gone) { static_cast<Lives*>(self)->alive_.erase(gone); }

    std::set<GObject*> alive_;
};
