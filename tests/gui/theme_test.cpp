// SPDX-License-Identifier: MIT
// The look that the windows share: the stylesheet as it is read and as it works, the names of its classes, excerpts of
// long texts, the small widgets, the header band, and the penguin.
#include "tree.h"

#include "theme.cpp"

#include <gtest/gtest-spi.h>
#include <cmath>
#include <tuple>

// ---- What the tests see of GTK's work -------------------------------------------------------------------------------

namespace {

struct Registration {
    GdkScreen* screen;
    GtkStyleProvider* provider;
    guint priority;
    bool old_style_listens;
};

/// Returns whether GTK's default style from before there were stylesheets learns of a change in them.
bool old_style_listens() {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GtkStyle* style = gtk_widget_get_default_style();
    G_GNUC_END_IGNORE_DEPRECATIONS
    GtkStyleContext* context = nullptr;
    g_object_get(style, "context", &context, nullptr);
    const auto those = static_cast<GSignalMatchType>(G_SIGNAL_MATCH_DATA | G_SIGNAL_MATCH_UNBLOCKED);
    const gulong handler = g_signal_handler_find(context, those, 0, 0, nullptr, nullptr, style);
    g_object_unref(context);
    return handler != 0;
}

std::vector<Registration> g_registrations;
int g_providers_made = 0;
/// Each load: the text, its length, and whether errors were to be returned.
std::vector<std::tuple<const gchar*, gssize, bool>> g_loads;

/// The arguments of the last picture.
struct Picture {
    const guchar* data;
    GdkColorspace space;
    gboolean alpha;
    int bits;
    int width;
    int height;
    int stride;
    GdkPixbufDestroyNotify destroy;
};

Picture g_picture;
bool g_picture_fails = false;
/// The pictures that are alive.
int g_pictures = 0;

}  // namespace

extern "C" {

void __real_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen* screen, GtkStyleProvider* provider, guint priority) {
    g_registrations.push_back({screen, provider, priority, old_style_listens()});
    __real_gtk_style_context_add_provider_for_screen(screen, provider, priority);
}

GtkCssProvider* __real_gtk_css_provider_new();
GtkCssProvider* __wrap_gtk_css_provider_new();
GtkCssProvider* __wrap_gtk_css_provider_new() {
    ++g_providers_made;
    return __real_gtk_css_provider_new();
}

gboolean __real_gtk_css_provider_load_from_data(GtkCssProvider*, const gchar*, gssize, GError**);
gboolean __wrap_gtk_css_provider_load_from_data(GtkCssProvider*, const gchar*, gssize, GError**);
gboolean __wrap_gtk_css_provider_load_from_data(GtkCssProvider* provider, const gchar* text, gssize length,
                                                GError** error) {
    g_loads.emplace_back(text, length, error != nullptr);
    return __real_gtk_css_provider_load_from_data(provider, text, length, error);
}

GdkPixbuf* __real_gdk_pixbuf_new_from_data(const guchar*, GdkColorspace, gboolean, int, int, int, int,
                                           GdkPixbufDestroyNotify, gpointer);
GdkPixbuf* __wrap_gdk_pixbuf_new_from_data(const guchar*, GdkColorspace, gboolean, int, int, int, int,
                                           GdkPixbufDestroyNotify, gpointer);
GdkPixbuf* __wrap_gdk_pixbuf_new_from_data(const guchar* data, GdkColorspace space, gboolean alpha, int bits, int width,
                                           int height, int stride, GdkPixbufDestroyNotify destroy, gpointer user) {
    g_picture = {data, space, alpha, bits, width, height, stride, destroy};
    if (g_picture_fails) return nullptr;
    GdkPixbuf* picture =
        __real_gdk_pixbuf_new_from_data(data, space, alpha, bits, width, height, stride, destroy, user);
    ++g_pictures;
    g_object_weak_ref(
        G_OBJECT(picture), [](gpointer, GObject*) { --g_pictures; }, nullptr);
    return picture;
}
}

namespace {

/// A widget that is destroyed with its object.
class Owned {
  public:
    explicit Owned(GtkWidget* widget) : widget_(widget) { g_object_ref_sink(widget_); }
    ~Owned() {
        gtk_widget_destroy(widget_);
        g_object_unref(widget_);
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    operator GtkWidget*() const { return widget_; }

  private:
    GtkWidget* widget_;
};

using Classes = std::set<std::string>;

// ---- The stylesheet, read -------------------------------------------------------------------------------------------

/// A rule: a selector and its declarations. The definition of a colour is a selector without declarations.
struct Rule {
    std::string section;
    std::string selector;
    std::vector<std::string> declarations;

    bool operator==(const Rule&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Rule& rule) {
    out << rule.section << "| " << rule.selector << " {";
    for (const std::string& declaration : rule.declarations) out << ' ' << declaration << ';';
    return out << " }";
}

std::string trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \n");
    if (first == std::string_view::npos) return "";
    return std::string(text.substr(first, text.find_last_not_of(" \n") - first + 1));
}

/// Reads the rules of `css` in their order, each with the comment that heads its section.
std::vector<Rule> read_rules(std::string_view css) {
    std::vector<Rule> rules;
    std::string section;
    const auto take_until = [&css](std::string_view end) {
        const size_t length = css.find(end);
        const std::string taken(css.substr(0, length));
        css.remove_prefix(length == std::string_view::npos ? css.size() : length + end.size());
        return taken;
    };
    while (!trimmed(css).empty()) {
        css.remove_prefix(css.find_first_not_of(" \n"));
        if (css.starts_with("/*")) {
            css.remove_prefix(2);
            section = trimmed(take_until("*/"));
        } else if (css.starts_with("@define-color ")) {
            rules.push_back({section, take_until(";"), {}});
        } else {
            Rule rule{section, trimmed(take_until("{")), {}};
            std::string body = take_until("}");
            EXPECT_EQ(body.find('{'), std::string::npos) << body;
            while (!trimmed(body).empty()) {
                const size_t end = body.find(';');
                EXPECT_NE(end, std::string::npos) << body;
                if (end == std::string::npos) break;
                rule.declarations.push_back(trimmed(body.substr(0, end)));
                body.erase(0, end + 1);
            }
            rules.push_back(rule);
        }
    }
    return rules;
}

/// How the windows must look, rule by rule.
const std::vector<Rule> LOOK = {
    {"", "@define-color acc_mainline #d97706", {}},
    {"", "@define-color acc_stable #15803d", {}},
    {"", "@define-color acc_longterm #1d4ed8", {}},
    {"", "@define-color acc_system #4f46e5", {}},

    {"header", ".hdr", {"padding: 14px 18px"}},
    {"header",
     ".hdr.acc-mainline",
     {"background-image: linear-gradient(120deg, shade(@acc_mainline,0.85), @acc_mainline)"}},
    {"header",
     ".hdr.acc-stable",
     {"background-image: linear-gradient(120deg, shade(@acc_stable,0.85),   @acc_stable)"}},
    {"header",
     ".hdr.acc-longterm",
     {"background-image: linear-gradient(120deg, shade(@acc_longterm,0.85), @acc_longterm)"}},
    {"header",
     ".hdr.acc-system",
     {"background-image: linear-gradient(120deg, shade(@acc_system,0.85),   @acc_system)"}},
    {"header", ".hdr-title", {"color: #ffffff", "font-size: 17px", "font-weight: bold"}},
    {"header", ".hdr-subtitle", {"color: alpha(#ffffff, 0.85)", "font-size: 12px"}},

    {"surfaces",
     ".card",
     {"background-color: alpha(@theme_fg_color, 0.05)", "border: 1px solid alpha(@theme_fg_color, 0.10)",
      "border-radius: 10px", "padding: 12px 14px"}},
    {"surfaces",
     ".commit-card",
     {"background-color: alpha(@theme_fg_color, 0.04)", "border-radius: 8px",
      "border-left: 3px solid alpha(@theme_fg_color, 0.25)", "padding: 9px 12px"}},
    {"surfaces", ".commit-card.is-merge", {"border-left-color: #7c3aed"}},
    {"surfaces", ".commit-card.is-fix", {"border-left-color: #dc2626"}},
    {"surfaces", ".commit-card.is-release", {"border-left-color: #15803d"}},
    {"surfaces",
     ".toolbar",
     {"background-color: alpha(@theme_fg_color, 0.03)", "border-bottom: 1px solid alpha(@theme_fg_color, 0.10)",
      "padding: 8px 14px"}},

    {"text",
     ".section",
     {"font-size: 11px", "font-weight: bold", "letter-spacing: 1px", "color: alpha(@theme_fg_color, 0.55)"}},
    {"text", ".key", {"font-size: 12px", "color: alpha(@theme_fg_color, 0.62)"}},
    {"text", ".val", {"font-size: 12px", "font-weight: bold"}},
    {"text", ".val-strong", {"font-size: 14px", "font-weight: bold"}},
    {"text", ".note", {"font-size: 11px", "font-style: italic", "color: alpha(@theme_fg_color, 0.55)"}},
    {"text", ".mono", {"font-size: 11px", "font-family: monospace"}},
    {"text", ".subject", {"font-size: 13px", "font-weight: bold"}},
    {"text", ".meta", {"font-size: 11px", "color: alpha(@theme_fg_color, 0.50)"}},
    {"text", ".status", {"font-size: 12px", "color: alpha(@theme_fg_color, 0.70)"}},
    {"text", ".error-text", {"font-size: 12px"}},

    {"badges",
     ".badge",
     {"font-size: 10px", "font-weight: bold", "padding: 2px 8px", "border-radius: 9px", "color: #ffffff",
      "background-color: alpha(@theme_fg_color, 0.45)"}},
    {"badges", ".badge-green", {"background-color: #15803d"}},
    {"badges", ".badge-blue", {"background-color: #1d4ed8"}},
    {"badges", ".badge-amber", {"background-color: #d97706"}},
    {"badges", ".badge-red", {"background-color: #dc2626"}},
    {"badges", ".badge-purple", {"background-color: #7c3aed"}},
    {"badges", ".badge-gray", {"background-color: alpha(@theme_fg_color, 0.38)"}},
    {"badges",
     ".badge-hash",
     {"font-family: monospace", "font-size: 10px", "padding: 2px 7px", "border-radius: 5px",
      "color: alpha(@theme_fg_color, 0.75)", "background-color: alpha(@theme_fg_color, 0.10)"}},
    {"badges",
     ".tag",
     {"font-size: 10px", "font-weight: bold", "padding: 2px 8px", "border-radius: 9px", "color: #ffffff"}},
    {"badges", ".tag-0", {"background-color: #0e7490"}},
    {"badges", ".tag-1", {"background-color: #b45309"}},
    {"badges", ".tag-2", {"background-color: #7c3aed"}},
    {"badges", ".tag-3", {"background-color: #be185d"}},
    {"badges", ".tag-4", {"background-color: #15803d"}},
    {"badges", ".tag-5", {"background-color: #1d4ed8"}},
    {"badges", ".tag-6", {"background-color: #a16207"}},
    {"badges", ".tag-7", {"background-color: #0f766e"}},

    {"list", "treeview.view", {"font-size: 12px"}},
    {"list", "treeview.view:selected", {"background-color: @acc_system", "color: #ffffff"}},
    {"list", "treeview header button", {"font-size: 11px", "font-weight: bold", "padding: 4px 6px"}},
};

TEST(Stylesheet, HoldsEachRuleInItsPlace) {
    const std::vector<Rule> rules = read_rules(APP_CSS);
    for (size_t i = 0; i < std::min(rules.size(), LOOK.size()); ++i) EXPECT_EQ(rules[i], LOOK[i]);
    EXPECT_EQ(rules.size(), LOOK.size());
}

TEST(Stylesheet, BeginsWithANewline) {
    EXPECT_EQ(APP_CSS[0], '\n');
}

/// Loads `css` and returns what the parser said about it.
std::vector<std::string> complaints(const char* css) {
    std::vector<std::string> errors;
    GtkCssProvider* provider = __real_gtk_css_provider_new();
    g_signal_connect(provider, "parsing-error",
                     G_CALLBACK(+[](GtkCssProvider*, GtkCssSection*, const GError* error,
                                    std::vector<std::string>* list) { list->emplace_back(error->message); }),
                     &errors);
    __real_gtk_css_provider_load_from_data(provider, css, -1, nullptr);
    g_object_unref(provider);
    return errors;
}

TEST(Stylesheet, IsReadWithoutAnError) {
    EXPECT_EQ(complaints(APP_CSS), std::vector<std::string>{});
    EXPECT_FALSE(complaints(".card { pading: 1px; }").empty());
}

// ---- The stylesheet, at work ----------------------------------------------------------------------------------------

/// A window with the stylesheet, and a label in it whose style the test looks at.
class Style : public testing::Test {
  protected:
    Style() {
        theme_apply(window);
        gtk_container_add(GTK_CONTAINER(static_cast<GtkWidget*>(window)), label);
    }

    GtkStyleContext* with(std::initializer_list<const char*> classes) const {
        for (const std::string& old : classes_of(label)) {
            gtk_style_context_remove_class(gtk_widget_get_style_context(label), old.c_str());
        }
        for (const char* name : classes) theme_add_class(label, name);
        return gtk_widget_get_style_context(label);
    }

    /// Returns a colour as red, green, blue in two hexadecimal digits each, and the opacity in percent.
    static std::string colour(GtkStyleContext* context, const char* property) {
        GdkRGBA* rgba = nullptr;
        gtk_style_context_get(context, gtk_style_context_get_state(context), property, &rgba, nullptr);
        const auto byte = [](double part) { return static_cast<int>(std::lround(part * 255)); };
        char text[32];
        std::snprintf(text, sizeof text, "#%02x%02x%02x %ld%%", byte(rgba->red), byte(rgba->green), byte(rgba->blue),
                      std::lround(rgba->alpha * 100));
        gdk_rgba_free(rgba);
        return text;
    }

    /// Returns the theme's foreground colour at an opacity in percent.
    static std::string foreground(GtkStyleContext* context, int percent) {
        GdkRGBA rgba;
        EXPECT_TRUE(gtk_style_context_lookup_color(context, "theme_fg_color", &rgba));
        const auto byte = [](double part) { return static_cast<int>(std::lround(part * 255)); };
        char text[32];
        std::snprintf(text, sizeof text, "#%02x%02x%02x %d%%", byte(rgba.red), byte(rgba.green), byte(rgba.blue),
                      percent);
        return text;
    }

    Owned window{gtk_window_new(GTK_WINDOW_TOPLEVEL)};
    GtkWidget* label = gtk_label_new("text");
};

TEST_F(Style, BadgesColourWinsOverTheNeutralOne) {
    EXPECT_EQ(colour(with({"badge"}), "background-color"), foreground(with({"badge"}), 45));
    EXPECT_EQ(colour(with({"badge", "badge-green"}), "background-color"), "#15803d 100%");
    EXPECT_EQ(colour(with({"badge", "badge-blue"}), "background-color"), "#1d4ed8 100%");
    EXPECT_EQ(colour(with({"badge", "badge-amber"}), "background-color"), "#d97706 100%");
    EXPECT_EQ(colour(with({"badge", "badge-red"}), "background-color"), "#dc2626 100%");
    EXPECT_EQ(colour(with({"badge", "badge-purple"}), "background-color"), "#7c3aed 100%");
    EXPECT_EQ(colour(with({"badge", "badge-gray"}), "background-color"), foreground(with({"badge"}), 38));
    EXPECT_EQ(colour(with({"badge", "badge-green"}), "color"), "#ffffff 100%");
}

TEST_F(Style, CardsKindColoursItsLeftEdge) {
    EXPECT_EQ(colour(with({"commit-card"}), "border-left-color"), foreground(with({"commit-card"}), 25));
    EXPECT_EQ(colour(with({"commit-card", "is-merge"}), "border-left-color"), "#7c3aed 100%");
    EXPECT_EQ(colour(with({"commit-card", "is-fix"}), "border-left-color"), "#dc2626 100%");
    EXPECT_EQ(colour(with({"commit-card", "is-release"}), "border-left-color"), "#15803d 100%");
}

TEST_F(Style, EachTagHasItsColour) {
    const char* colours[] = {"#0e7490", "#b45309", "#7c3aed", "#be185d", "#15803d", "#1d4ed8", "#a16207", "#0f766e"};
    for (size_t i = 0; i < 8; ++i) {
        const std::string name = "tag-" + std::to_string(i);
        EXPECT_EQ(colour(with({"tag", name.c_str()}), "background-color"), std::string(colours[i]) + " 100%");
        EXPECT_EQ(colour(with({"tag", name.c_str()}), "color"), "#ffffff 100%");
    }
}

TEST_F(Style, EachAccentGivesTheHeaderItsGradient) {
    for (const char* accent : {"acc-mainline", "acc-stable", "acc-longterm", "acc-system"}) {
        GValue image = G_VALUE_INIT;
        gtk_style_context_get_property(with({"hdr", accent}), "background-image", GTK_STATE_FLAG_NORMAL, &image);
        EXPECT_TRUE(g_value_get_boxed(&image)) << accent;
        g_value_unset(&image);
    }
    GValue image = G_VALUE_INIT;
    gtk_style_context_get_property(with({"hdr"}), "background-image", GTK_STATE_FLAG_NORMAL, &image);
    EXPECT_FALSE(g_value_get_boxed(&image));
    g_value_unset(&image);
}

// ---- theme_apply ----------------------------------------------------------------------------------------------------

TEST(Apply, LoadsOnceAndRegistersForEachWindow) {
    const Owned first(gtk_window_new(GTK_WINDOW_TOPLEVEL));
    const Owned second(gtk_window_new(GTK_WINDOW_TOPLEVEL));
    g_registrations.clear();
    theme_apply(first);
    ASSERT_EQ(g_registrations.size(), 1U);
    theme_apply(second);
    ASSERT_EQ(g_registrations.size(), 2U);
    theme_apply(second);
    ASSERT_EQ(g_registrations.size(), 3U);
    for (const Registration& registration : g_registrations) {
        EXPECT_EQ(registration.screen, gtk_window_get_screen(GTK_WINDOW(static_cast<GtkWidget*>(first))));
        EXPECT_TRUE(GTK_IS_CSS_PROVIDER(registration.provider));
        EXPECT_EQ(registration.provider, g_registrations[0].provider);
        EXPECT_EQ(registration.priority, 600U);
    }
    // This holds whatever other tests of this process did before.
    EXPECT_EQ(g_providers_made, 1);
    ASSERT_EQ(g_loads.size(), 1U);
    EXPECT_EQ(g_loads[0], std::make_tuple(APP_CSS + 0, gssize{-1}, false));
}

TEST(Apply, SparesGtkTheStyleThatNobodyReads) {
    const Owned window(gtk_window_new(GTK_WINDOW_TOPLEVEL));
    g_registrations.clear();
    EXPECT_TRUE(old_style_listens());
    theme_apply(window);
    EXPECT_FALSE(g_registrations.at(0).old_style_listens);
    EXPECT_TRUE(old_style_listens());
}

// ---- Names ----------------------------------------------------------------------------------------------------------

TEST(ChannelClass, IsTheChannelsOwn) {
    EXPECT_STREQ(theme_channel_class("mainline"), "acc-mainline");
    EXPECT_STREQ(theme_channel_class("stable"), "acc-stable");
    EXPECT_STREQ(theme_channel_class("longterm"), "acc-longterm");
}

TEST(ChannelClass, OfWhatIsNoChannelIsThatOfStable) {
    for (const char* name : {"", "Mainline", "mainline ", " mainline", "main", "mainline2", "LONGTERM", "linux-next"}) {
        EXPECT_STREQ(theme_channel_class(name), "acc-stable") << name;
    }
    EXPECT_STREQ(theme_channel_class(std::string("mainline\0", 9)), "acc-stable");
}

/// FNV-1a by its definition, in 64 bits.
unsigned long long fnv1a(const std::string& text) {
    unsigned long long h = 2166136261ULL;
    for (const char c : text) {
        h ^= static_cast<unsigned long long>(static_cast<unsigned char>(c));
        h = h * 16777619ULL % 4294967296ULL;
    }
    return h;
}

TEST(TagClass, IsThatOfKnownNames) {
    EXPECT_STREQ(theme_tag_class(""), "tag-5");
    EXPECT_STREQ(theme_tag_class("net"), "tag-0");
    EXPECT_STREQ(theme_tag_class("drm"), "tag-2");
    EXPECT_STREQ(theme_tag_class("usb"), "tag-1");
    EXPECT_STREQ(theme_tag_class("fs"), "tag-6");
    EXPECT_STREQ(theme_tag_class("mm"), "tag-7");
}

TEST(TagClass, FollowsTheHashForAnyBytes) {
    EXPECT_EQ(fnv1a(""), 0x811c9dc5U);
    EXPECT_EQ(fnv1a("net"), 0x25999158U);
    EXPECT_EQ(fnv1a("drm"), 0xf025e6daU);
    EXPECT_EQ(fnv1a("usb"), 0x5691c361U);
    EXPECT_EQ(fnv1a("fs"), 0x5622d55eU);
    EXPECT_EQ(fnv1a("mm"), 0x602e1e0fU);

    std::vector<std::string> names = {"NET", "net ", " net", "drm/i915", "größe", std::string(1, '\0'), "a\tb"};
    for (int byte = 0; byte < 256; ++byte) names.emplace_back(1, static_cast<char>(byte));
    for (int number = 0; number < 5000; ++number) {
        std::string name = "sub" + std::to_string(number * 7919);
        name += static_cast<char>(number % 256);
        names.push_back(name);
    }
    Classes seen;
    for (const std::string& name : names) {
        EXPECT_EQ(theme_tag_class(name), "tag-" + std::to_string(fnv1a(name) % 8)) << name;
        seen.insert(theme_tag_class(name));
    }
    EXPECT_EQ(seen.size(), 8U);
}

TEST(TagClass, CountsBlanks) {
    EXPECT_STREQ(theme_tag_class("usb"), "tag-1");
    EXPECT_STREQ(theme_tag_class("usb "), "tag-3");
    EXPECT_STRNE(theme_tag_class(" usb"), "tag-1");
}

// ---- Small widgets --------------------------------------------------------------------------------------------------

TEST(Excerpt, IsTheTextUpToFiveHundredCharacters) {
    EXPECT_EQ(excerpt_of(""), "");
    EXPECT_EQ(excerpt_of("7.2.4"), "7.2.4");
    std::string longest;
    for (int i = 0; i < 500; ++i) longest += "ö";
    EXPECT_EQ(excerpt_of(longest.c_str()), longest);
}

TEST(Excerpt, OfALongerTextIsItsStart) {
    std::string start;
    for (int i = 0; i < 499; ++i) start += "ö";
    EXPECT_EQ(excerpt_of((start + "öö").c_str()), start + "…");
    EXPECT_EQ(excerpt_of((start + std::string(65536, 'x')).c_str()), start + "…");
}

TEST(Excerpt, IsTheFirstLineOfATextWithMore) {
    for (const char* end : {"\n", "\r", "\r\n", "\v", "\f", "\u0085", "\u2028", "\u2029"}) {
        const std::string ending = end;
        EXPECT_EQ(excerpt_of(("7.2.4" + ending).c_str()), "7.2.4…");
        EXPECT_EQ(excerpt_of(("7.2.4" + ending + "7.2.5" + ending).c_str()), "7.2.4…");
        EXPECT_EQ(excerpt_of((ending + "7.2.4").c_str()), "…");
        std::string many;
        for (int i = 0; i < 499; ++i) many += ending;
        EXPECT_EQ(excerpt_of(many.c_str()), "…");
    }
}

TEST(Excerpt, OfALongFirstLineIsItsStart) {
    const std::string start(499, 'x');
    EXPECT_EQ(excerpt_of((start + "\nx").c_str()), start + "…");
    EXPECT_EQ(excerpt_of((start + "x\nx").c_str()), start + "…");
    EXPECT_EQ(excerpt_of((start + "xx\nx").c_str()), start + "…");
}

TEST(Excerpt, TakesNothingElseForALinesEnd) {
    std::string text;
    for (gunichar c = 1; c < 0x3000; ++c) {
        gchar bytes[6];
        const gint length = g_unichar_to_utf8(c, bytes);
        const std::string letter(bytes, static_cast<size_t>(length));
        const bool ends = (c >= 0xa && c <= 0xd) || c == 0x85 || c == 0x2028 || c == 0x2029;
        EXPECT_EQ(excerpt_of(("7" + letter + "2").c_str()), ends ? "7…" : "7" + letter + "2") << c;
    }
}

TEST(Excerpt, HasNoSecondLineForPango) {
    const Owned label(gtk_label_new(""));
    for (gunichar c = 1; c < 0x11000; ++c) {
        if (!g_unichar_validate(c)) continue;
        gchar bytes[6];
        const gint length = g_unichar_to_utf8(c, bytes);
        const std::string text = "7" + std::string(bytes, static_cast<size_t>(length)) + "2";
        PangoLayout* layout = gtk_widget_create_pango_layout(label, excerpt_of(text.c_str()).c_str());
        EXPECT_EQ(pango_layout_get_line_count(layout), 1) << c;
        g_object_unref(layout);
    }
}

TEST(AddClass, AddsToWhatIsThere) {
    const Owned widget(gtk_label_new("x"));
    theme_add_class(widget, "mono");
    theme_add_class(widget, "note");
    theme_add_class(widget, "note");
    EXPECT_EQ(classes_of(widget), (Classes{"mono", "note"}));
}

TEST(Card, IsAPlainVerticalBox) {
    const Owned card(theme_card());
    EXPECT_EQ(describe(card), R"(
GtkBox.card hidden orientation=vertical spacing=6
)");
}

TEST(Badge, HasItsColourBesideItsShape) {
    const Owned badge(theme_badge("panel", "badge-green"));
    EXPECT_EQ(describe(badge), R"(
GtkLabel.badge.badge-green hidden halign=start label="panel" valign=center
)");
}

TEST(Badge, WithoutAColourIsNeutral) {
    const Owned badge(theme_badge("new", nullptr));
    EXPECT_EQ(describe(badge), R"(
GtkLabel.badge hidden halign=start label="new" valign=center
)");
}

TEST(Badge, TakesItsTextAsItStands) {
    const Owned badge(theme_badge("<b>_a&amp;</b>", "badge-red"));
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(static_cast<GtkWidget*>(badge))), "<b>_a&amp;</b>");
    const Owned empty(theme_badge("", nullptr));
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(static_cast<GtkWidget*>(empty))), "");
}

TEST(Factories, LeaveTheirWidgetToTheCaller) {
    for (GtkWidget* widget : {theme_card(), theme_badge("a", nullptr), theme_header("a", "b", "acc-stable")}) {
        EXPECT_TRUE(g_object_is_floating(widget));
        const Owned owned(widget);
        for (GtkWidget* part : all_widgets(widget)) EXPECT_FALSE(gtk_widget_get_visible(part));
    }
}

// ---- The header -----------------------------------------------------------------------------------------------------

class Header : public testing::Test {
  protected:
    ~Header() override { g_picture_fails = false; }

    static std::string subtitle(GtkWidget* header) {
        return gtk_label_get_text(GTK_LABEL(g_object_get_data(G_OBJECT(header), "subtitle-label")));
    }
};

TEST_F(Header, HasPenguinTitleAndSubtitle) {
    const Owned header(theme_header("Veldrin", "Linux kernel overview", "acc-mainline"));
    EXPECT_EQ(describe(header), R"(
GtkBox.acc-mainline.hdr hidden spacing=14
  GtkImage [start] hidden valign=center
  GtkBox [start expand fill] hidden orientation=vertical spacing=2 valign=center
    GtkLabel.hdr-title [start] hidden label="Veldrin" xalign=0
    GtkLabel.hdr-subtitle [start] hidden label="Linux kernel overview" wrap xalign=0
)");
}

TEST_F(Header, HasNoPictureWhereItCanNotBeMade) {
    g_picture_fails = true;
    const Owned header(theme_header("Title", nullptr, "acc-system"));
    EXPECT_EQ(describe(header), R"(
GtkBox.acc-system.hdr hidden spacing=14
  GtkBox [start expand fill] hidden orientation=vertical spacing=2 valign=center
    GtkLabel.hdr-title [start] hidden label="Title" xalign=0
    GtkLabel.hdr-subtitle [start] hidden wrap xalign=0
)");
    theme_header_set_subtitle(header, "later");
    EXPECT_EQ(subtitle(header), "later");
}

TEST_F(Header, NamesItsSubtitleLabel) {
    const Owned header(theme_header("Title", "Sub", "acc-stable"));
    EXPECT_EQ(g_object_get_data(G_OBJECT(static_cast<GtkWidget*>(header)), "subtitle-label"),
              descendant(header, {1, 1}));
}

TEST_F(Header, KeepsALabelForASubtitleThatComesLater) {
    for (const char* none : {static_cast<const char*>(nullptr), ""}) {
        const Owned header(theme_header("Title", none, "acc-stable"));
        EXPECT_EQ(subtitle(header), "");
        theme_header_set_subtitle(header, "stable  ·  7.2.4");
        EXPECT_EQ(subtitle(header), "stable  ·  7.2.4");
        EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(descendant(header, {1, 1}))), "stable  ·  7.2.4");
        EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(descendant(header, {1, 0}))), "Title");
    }
}

TEST_F(Header, NullEmptiesTheSubtitle) {
    const Owned header(theme_header("Title", "Sub", "acc-stable"));
    theme_header_set_subtitle(header, nullptr);
    EXPECT_EQ(subtitle(header), "");
}

TEST_F(Header, VeryLongSubtitleShowsItsStart) {
    const std::string endless(65536, 'x');
    const std::string shown = std::string(499, 'x') + "…";
    GtkWidget* made = theme_header("Title", endless.c_str(), "acc-stable");
    g_object_ref_sink(made);
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(descendant(made, {1, 1}))), shown.c_str());
    theme_header_set_subtitle(made, "7.2.4");
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(descendant(made, {1, 1}))), "7.2.4");
    theme_header_set_subtitle(made, endless.c_str());
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(descendant(made, {1, 1}))), shown.c_str());
    g_object_unref(made);
}

/// A window with a header band, as wide as the narrowest of those that have one.
class HeaderInAWindow : public Header {
  protected:
    HeaderInAWindow() {
        gtk_window_set_default_size(GTK_WINDOW(window), 780, 400);
        theme_apply(window);
        gtk_container_add(GTK_CONTAINER(window), box);
        gtk_box_pack_start(GTK_BOX(box), header, FALSE, FALSE, 0);
        gtk_widget_show_all(window);
        show("stable  ·  7.2.4  ·  released 2026-09-05");
        ordinary = gtk_widget_get_allocated_height(header);
    }
    ~HeaderInAWindow() override { gtk_widget_destroy(window); }

    void show(const std::string& text) {
        theme_header_set_subtitle(header, text.c_str());
        EXPECT_TRUE(run_loop_until_drawn(window));
    }
    PangoLayout* layout() {
        return gtk_label_get_layout(GTK_LABEL(g_object_get_data(G_OBJECT(header), "subtitle-label")));
    }
    std::pair<int, int> size() {
        int width = 0;
        int height = 0;
        gtk_window_get_size(GTK_WINDOW(window), &width, &height);
        return {width, height};
    }

    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* header = theme_header("Latest Kernel Changes", nullptr, "acc-stable");
    int ordinary = 0;
};

TEST_F(HeaderInAWindow, SubtitleOfManyWordsIsShownWhole) {
    std::string text = "7.2.4";
    for (int i = 0; i < 40; ++i) text += " heron";
    show(text);
    EXPECT_FALSE(pango_layout_is_ellipsized(layout()));
    EXPECT_GT(pango_layout_get_line_count(layout()), 1);
    EXPECT_EQ(size(), std::pair(780, 400));
}

TEST_F(HeaderInAWindow, SubtitleNeverWidensTheWindow) {
    std::string tabs;
    std::string cuneiform;
    for (int i = 0; i < 499; ++i) tabs += '\t';
    for (int i = 0; i < 499; ++i) cuneiform += "\U0001242b";
    for (const std::string& text : {std::string(499, 'W'), std::string(65536, 'W'), tabs, cuneiform}) {
        show("stable  ·  7.2.4" + text);
        EXPECT_EQ(size(), std::pair(780, 400));
        EXPECT_LT(gtk_widget_get_allocated_height(header), 350);
    }
}

TEST_F(HeaderInAWindow, SubtitleOfManyLinesShowsOne) {
    std::string lines;
    for (int i = 0; i < 3000; ++i) lines += "7.2.4\n";
    show("stable  ·  " + lines);
    EXPECT_EQ(gtk_widget_get_allocated_height(header), ordinary);
}

TEST_F(HeaderInAWindow, ShortSubtitleAfterALongOneHasTheUsualHeight) {
    show(std::string(499, 'W'));
    show("stable  ·  7.2.4  ·  released 2026-09-05");
    EXPECT_EQ(gtk_widget_get_allocated_height(header), ordinary);
    EXPECT_FALSE(pango_layout_is_ellipsized(layout()));
}

TEST_F(Header, TextsArePlain) {
    const Owned header(theme_header("<i>_T</i>", "&lt;_s", "acc-stable"));
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(descendant(header, {1, 0}))), "<i>_T</i>");
    EXPECT_EQ(subtitle(header), "&lt;_s");
    theme_header_set_subtitle(header, "<b>_x</b>");
    EXPECT_EQ(subtitle(header), "<b>_x</b>");
}

TEST_F(Header, SubtitleOfAnotherWidgetIsLeftAlone) {
    const Owned label(gtk_label_new("mine"));
    theme_header_set_subtitle(label, "other");
    theme_header_set_subtitle(label, nullptr);
    EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(static_cast<GtkWidget*>(label))), "mine");
}

TEST_F(Header, HasOneAccentHoweverOftenItChanges) {
    for (const char* first : {"acc-mainline", "acc-stable", "acc-longterm", "acc-system"}) {
        const Owned header(theme_header("Title", "Sub", first));
        for (const char* next : {"acc-mainline", "acc-stable", "acc-longterm", "acc-system"}) {
            theme_header_set_accent(header, next);
            EXPECT_EQ(classes_of(header), (Classes{"hdr", next})) << first;
            theme_header_set_accent(header, next);
            EXPECT_EQ(classes_of(header), (Classes{"hdr", next})) << first;
        }
    }
}

// ---- The penguin ----------------------------------------------------------------------------------------------------

TEST_F(Header, ShowsThePenguinFromTheProgramItself) {
    const Owned header(theme_header("Title", "Sub", "acc-stable"));
    EXPECT_EQ(g_picture.data, tux_info_rgba);
    EXPECT_EQ(g_picture.space, GDK_COLORSPACE_RGB);
    EXPECT_TRUE(g_picture.alpha);
    EXPECT_EQ(g_picture.bits, 8);
    EXPECT_EQ(g_picture.width, 48);
    EXPECT_EQ(g_picture.height, 56);
    EXPECT_EQ(g_picture.stride, 192);
    EXPECT_EQ(g_picture.destroy, nullptr);

    GdkPixbuf* shown = gtk_image_get_pixbuf(GTK_IMAGE(descendant(header, {0})));
    ASSERT_TRUE(shown);
    EXPECT_EQ(gdk_pixbuf_read_pixels(shown), tux_info_rgba);
}

TEST_F(Header, FreesItsPictureWithItself) {
    EXPECT_EQ(g_pictures, 0);
    {
        const Owned header(theme_header("Title", "Sub", "acc-stable"));
        EXPECT_EQ(g_pictures, 1);
    }
    EXPECT_EQ(g_pictures, 0);
}

TEST(Penguin, FillsFiftySixRowsOfFortyEightPixels) {
    EXPECT_EQ(TUX_INFO_W, 48);
    EXPECT_EQ(TUX_INFO_H, 56);
    EXPECT_EQ(sizeof tux_info_rgba, 10752U);
}

TEST(Penguin, IsDarkWhiteAndOrangeOnNothing) {
    int clear = 0;
    int dark = 0;
    int white = 0;
    int orange = 0;
    for (size_t i = 0; i < sizeof tux_info_rgba; i += 4) {
        const int r = tux_info_rgba[i];
        const int g = tux_info_rgba[i + 1];
        const int b = tux_info_rgba[i + 2];
        const int a = tux_info_rgba[i + 3];
        clear += a == 0;
        dark += a == 255 && r < 60 && g < 60 && b < 60;
        white += a == 255 && r > 230 && g > 230 && b > 230;
        orange += a == 255 && r > 200 && g > 100 && g < 215 && b < 80;
    }
    for (const int count : {clear, dark, white, orange}) EXPECT_GT(count, 48 * 56 / 25);
    for (const size_t corner : {0U, 47U, 55U * 48U, 56U * 48U - 1U}) EXPECT_EQ(tux_info_rgba[4 * corner + 3], 0);
}

TEST(Warnings, FailTheTest) {
    EXPECT_NONFATAL_FAILURE(g_log("Gtk", G_LOG_LEVEL_WARNING, "a warning"), "a warning");
    EXPECT_NONFATAL_FAILURE(g_log("GLib-GObject", G_LOG_LEVEL_CRITICAL, "an assertion"), "an assertion");
}

}  // namespace
