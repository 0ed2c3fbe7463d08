// SPDX-License-Identifier: MIT
// The About dialog: what it says, its logo, its licence text, its contact, what it is, and how it opens and closes.
#include "tree.h"

#include "about_dialog.cpp"

#include <array>
#include <cstring>
#include <memory>
#include <regex>
#include <utility>

// ---- What the tests see of GTK's work, and put in its place ---------------------------------------------------------

namespace {

/// Called instead of the dialog's main loop. Null lets the dialog run.
std::function<void(GtkWidget*)> g_instead_of_run;
/// The dialogs that ran, the newest last. Most are closed.
std::vector<GtkWidget*> g_run;
bool g_picture_fails = false;
int g_pictures = 0;
int g_providers = 0;

}  // namespace

extern "C" {

gint __real_gtk_dialog_run(GtkDialog*);
gint __wrap_gtk_dialog_run(GtkDialog*);
gint __wrap_gtk_dialog_run(GtkDialog* dialog) {
    g_run.push_back(GTK_WIDGET(dialog));
    if (!g_instead_of_run) return __real_gtk_dialog_run(dialog);
    g_instead_of_run(GTK_WIDGET(dialog));
    return GTK_RESPONSE_NONE;
}

GdkPixbuf* __real_gdk_pixbuf_new_from_data(const guchar*, GdkColorspace, gboolean, int, int, int, int,
                                           GdkPixbufDestroyNotify, gpointer);
GdkPixbuf* __wrap_gdk_pixbuf_new_from_data(const guchar*, GdkColorspace, gboolean, int, int, int, int,
                                           GdkPixbufDestroyNotify, gpointer);
GdkPixbuf* __wrap_gdk_pixbuf_new_from_data(const guchar* data, GdkColorspace space, gboolean alpha, int bits, int width,
                                           int height, int stride, GdkPixbufDestroyNotify destroy, gpointer user) {
    ++g_pictures;
    EXPECT_EQ(data, logo_rgba);
    EXPECT_EQ(destroy, nullptr);
    if (g_picture_fails) return nullptr;
    return __real_gdk_pixbuf_new_from_data(data, space, alpha, bits, width, height, stride, destroy, user);
}

void __real_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider_for_screen(GdkScreen* screen, GtkStyleProvider* provider, guint priority) {
    ++g_providers;
    __real_gtk_style_context_add_provider_for_screen(screen, provider, priority);
}

void __real_gtk_style_context_add_provider(GtkStyleContext*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider(GtkStyleContext*, GtkStyleProvider*, guint);
void __wrap_gtk_style_context_add_provider(GtkStyleContext* context, GtkStyleProvider* provider, guint priority) {
    ++g_providers;
    __real_gtk_style_context_add_provider(context, provider, priority);
}
}

namespace {

std::string text_of(const char* text) {
    return text ? text : "(null)";
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    lines.push_back(text.substr(start));
    return lines;
}

/// Returns the host's name in a site's address.
std::string host(const std::string& site) {
    std::smatch parts;
    return std::regex_match(site, parts, std::regex("[a-z]+://([^/]+)/.*")) ? parts[1].str() : "";
}

/// The dialog. Before and after each test there is no window.
class AboutDialog : public testing::Test {
  protected:
    AboutDialog() {
        g_instead_of_run = nullptr;
        g_picture_fails = false;
        g_pictures = g_providers = 0;
        g_run.clear();
    }
    ~AboutDialog() override { EXPECT_EQ(open_windows().size(), 0U); }

    /// Shows the dialog, looks at it just before it would run, and closes it.
    static void look(const std::function<void(GtkWidget*)>& at) {
        g_instead_of_run = at;
        show_about_dialog();
        EXPECT_EQ(g_run.size(), 1U);
    }

    /// Shows the dialog, looks at it once it is drawn, and closes it.
    static void look_at_running(const std::function<void(GtkWidget*)>& at) {
        bool looked = false;
        const auto on_idle = [&] {
            GtkWidget* dialog = g_run.back();
            EXPECT_TRUE(run_loop_until_drawn(dialog));
            at(dialog);
            looked = true;
            gtk_dialog_response(GTK_DIALOG(dialog), GTK_RESPONSE_CLOSE);
        };
        in_the_loop(on_idle);
        show_about_dialog();
        EXPECT_TRUE(looked);
    }

    /// Makes the main loop call `what` once, when it is idle.
    static void in_the_loop(std::function<void()> what) {
        g_idle_add(
            [](gpointer data) -> gboolean {
                const std::unique_ptr<std::function<void()>> call(static_cast<std::function<void()>*>(data));
                (*call)();
                return G_SOURCE_REMOVE;
            },
            new std::function<void()>(std::move(what)));
    }

    static GtkWidget* content(GtkWidget* dialog) { return gtk_dialog_get_content_area(GTK_DIALOG(dialog)); }

    /// Returns the one link that stands directly in the dialog's content.
    static GtkWidget* contact(GtkWidget* dialog) {
        GtkWidget* found = nullptr;
        for (GtkWidget* child : children_of(content(dialog))) {
            if (!GTK_IS_LINK_BUTTON(child)) continue;
            EXPECT_EQ(found, nullptr);
            found = child;
        }
        EXPECT_NE(found, nullptr);
        return found;
    }

    static std::string licence() {
        std::string text;
        look([&text](GtkWidget* dialog) { text = text_of(gtk_about_dialog_get_license(GTK_ABOUT_DIALOG(dialog))); });
        return text;
    }
};

// ---- What it says ---------------------------------------------------------------------------------------------------

/// Kept on purpose: the release here, while a crash report says 1.2.
TEST_F(AboutDialog, NamesProgramVersionAndPurpose) {
    look([](GtkWidget* dialog) {
        auto* about = GTK_ABOUT_DIALOG(dialog);
        EXPECT_EQ(text_of(gtk_about_dialog_get_program_name(about)), "Veldrin");
        EXPECT_EQ(text_of(gtk_about_dialog_get_version(about)), "v" VELDRIN_VERSION);
        EXPECT_EQ(text_of(gtk_about_dialog_get_comments(about)), "Monitors Linux kernel releases from Kernhaven");
    });
}

TEST_F(AboutDialog, CopyrightIsTheYearAndBelowItTheMaker) {
    look([](GtkWidget* dialog) {
        const auto lines = lines_of(text_of(gtk_about_dialog_get_copyright(GTK_ABOUT_DIALOG(dialog))));
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_TRUE(std::regex_match(lines[0], std::regex("Copyright © 20\\d\\d"))) << lines[0];
        EXPECT_FALSE(lines[1].empty());
    });
}

TEST_F(AboutDialog, WebsiteIsLabelledByItsAddressWithoutTheScheme) {
    look([](GtkWidget* dialog) {
        auto* about = GTK_ABOUT_DIALOG(dialog);
        EXPECT_EQ(text_of(gtk_about_dialog_get_website(about)), VELDRIN_WEBSITE);
        const std::string label = text_of(gtk_about_dialog_get_website_label(about));
        EXPECT_EQ(label.find("://"), std::string::npos);
        EXPECT_TRUE("https://" + label == VELDRIN_WEBSITE || "http://" + label == VELDRIN_WEBSITE) << label;
    });
}

TEST_F(AboutDialog, SaysNothingElse) {
    look([](GtkWidget* dialog) {
        auto* about = GTK_ABOUT_DIALOG(dialog);
        for (const auto* people : {gtk_about_dialog_get_authors(about), gtk_about_dialog_get_documenters(about),
                                   gtk_about_dialog_get_artists(about)}) {
            EXPECT_TRUE(!people || !people[0]);
        }
        EXPECT_EQ(gtk_about_dialog_get_translator_credits(about), nullptr);
    });
}

// ---- The logo -------------------------------------------------------------------------------------------------------

TEST_F(AboutDialog, LogoHasThePixelsThatWereDrawn) {
    static_assert(LOGO_SIZE == 64 && sizeof logo_rgba == 16384);
    look([](GtkWidget* dialog) {
        GdkPixbuf* logo = gtk_about_dialog_get_logo(GTK_ABOUT_DIALOG(dialog));
        ASSERT_NE(logo, nullptr);
        EXPECT_EQ(gdk_pixbuf_get_width(logo), 64);
        EXPECT_EQ(gdk_pixbuf_get_height(logo), 64);
        EXPECT_EQ(gdk_pixbuf_get_rowstride(logo), 256);
        EXPECT_EQ(gdk_pixbuf_get_n_channels(logo), 4);
        EXPECT_EQ(gdk_pixbuf_get_bits_per_sample(logo), 8);
        EXPECT_TRUE(gdk_pixbuf_get_has_alpha(logo));
        EXPECT_EQ(gdk_pixbuf_get_colorspace(logo), GDK_COLORSPACE_RGB);
        EXPECT_EQ(std::memcmp(gdk_pixbuf_read_pixels(logo), logo_rgba, sizeof logo_rgba), 0);
    });
    EXPECT_EQ(g_pictures, 1);
}

TEST_F(AboutDialog, LogoIsAPictureAndNotEmpty) {
    size_t opaque = 0;
    size_t transparent = 0;
    for (size_t pixel = 0; pixel < sizeof logo_rgba; pixel += 4) {
        opaque += logo_rgba[pixel + 3] == 255;
        transparent += logo_rgba[pixel + 3] == 0;
    }
    EXPECT_GT(opaque, 500U);
    EXPECT_GT(transparent, 100U);
}

TEST_F(AboutDialog, ComesWithoutALogoWhereItCannotBeMade) {
    g_picture_fails = true;
    look_at_running([](GtkWidget* dialog) {
        auto* about = GTK_ABOUT_DIALOG(dialog);
        EXPECT_EQ(gtk_about_dialog_get_logo(about), nullptr);
        EXPECT_EQ(text_of(gtk_about_dialog_get_program_name(about)), "Veldrin");
        EXPECT_TRUE(gtk_widget_get_mapped(contact(dialog)));
    });
    EXPECT_EQ(g_pictures, 1);
}

TEST_F(AboutDialog, LogoIsFreedWithTheDialog) {
    GdkPixbuf* logo = nullptr;
    look([&logo](GtkWidget* dialog) {
        logo = gtk_about_dialog_get_logo(GTK_ABOUT_DIALOG(dialog));
        g_object_add_weak_pointer(G_OBJECT(logo), reinterpret_cast<gpointer*>(&logo));
        ASSERT_NE(logo, nullptr);
    });
    EXPECT_TRUE(run_loop_until([&logo] { return !logo; }));
}

// ---- The licence text -----------------------------------------------------------------------------------------------

/// The paragraphs from top to bottom. One that is fixed only in parts is a pattern.
const std::array LICENCE = {
    "DISCLAIMER",
    R"(This software is provided "as is", without warranty of any kind, express or implied, including but not limited )"
    R"(to the warranties of merchantability, fitness for a particular purpose and noninfringement\.)",
    R"(In no event shall the author be liable for any claim, damages or other liability arising from the use of this )"
    R"(software\.)",
    "LINUX AND TRADEMARKS",
    R"((?=.*Linux kernel)(?=.*copyright)(?=.*Linus Torvalds)(?=.*the thousands of contributors to the kernel).*)"
    R"(released under the GNU General Public License, version 2\.)",
    R"(Linux® is a registered trademark of Linus Torvalds in the U\.S\. and other countries\. )"
    R"(All other trademarks are the property of their respective owners\.)",
    R"(Kernhaven is operated by The Linux Kernel Organization, Inc\., a California 501\(c\)3 nonprofit corporation\.)",
    R"(Veldrin is an independent application\. .*not affiliated with, sponsored or endorsed by Linus Torvalds, )"
    R"(The Linux Kernel Organization or The Linux Foundation\.)",
    "ARTWORK",
    R"((?=.*Tux)(?=.*penguin)(?=.*Larry Ewing)(?=.*\S+@\S+\.\S+).*created with The GIMP\.)",
    "DATA SOURCE",
    R"(Kernel versions and changelogs are retrieved from Kernhaven while the application runs — from \S+, \S+ and \S+\.)",
    R"(Content on Kernhaven is made available under the Creative Commons Attribution-ShareAlike 4\.0 International )"
    R"(License\. Changelog entries are kernel commit messages and remain under the licenses of their respective )"
    R"(authors\. This application only displays that content; it does not redistribute it\.)",
};

TEST_F(AboutDialog, LicenceIsParagraphsWithOneBlankLineBetween) {
    const auto lines = lines_of(licence());
    ASSERT_EQ(lines.size(), 2 * LICENCE.size() - 1);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].empty(), i % 2 == 1) << i;
    }
}

TEST_F(AboutDialog, LicenceSaysEachParagraphInItsPlace) {
    const auto lines = lines_of(licence());
    ASSERT_EQ(lines.size(), 2 * LICENCE.size() - 1);
    for (size_t i = 0; i < LICENCE.size(); ++i) {
        EXPECT_TRUE(std::regex_match(lines[2 * i], std::regex(LICENCE[i]))) << lines[2 * i];
    }
}

TEST_F(AboutDialog, LicenceNamesTheThreeHostsInTheirOrder) {
    const std::string list = "— from " + host(VELDRIN_RELEASE_SITE) + ", " + host(VELDRIN_RELEASE_CDN) + " and " +
                             host(VELDRIN_GIT_BROWSER) + ".\n";
    EXPECT_NE(licence().find(list), std::string::npos) << list;
}

TEST_F(AboutDialog, LicenceIsPlainText) {
    const std::string text = licence();
    EXPECT_TRUE(g_utf8_validate(text.c_str(), -1, nullptr));
    for (const char* mark : {"<", ">", "&", "\t", "\r", "  "}) EXPECT_EQ(text.find(mark), std::string::npos) << mark;
}

TEST_F(AboutDialog, LicenceIsWrapped) {
    look([](GtkWidget* dialog) {
        EXPECT_TRUE(gtk_about_dialog_get_wrap_license(GTK_ABOUT_DIALOG(dialog)));
        EXPECT_EQ(gtk_about_dialog_get_license_type(GTK_ABOUT_DIALOG(dialog)), GTK_LICENSE_CUSTOM);
    });
}

// ---- The contact ----------------------------------------------------------------------------------------------------

TEST_F(AboutDialog, ContactIsALinkToTheMailbox) {
    look([](GtkWidget* dialog) {
        GtkWidget* link = contact(dialog);
        ASSERT_TRUE(link);
        EXPECT_EQ(text_of(gtk_link_button_get_uri(GTK_LINK_BUTTON(link))), "mailto:" VELDRIN_CONTACT);
        EXPECT_EQ(text_of(gtk_button_get_label(GTK_BUTTON(link))), VELDRIN_CONTACT);
    });
}

TEST_F(AboutDialog, ContactIsCentredAndDoesNotExpand) {
    look([](GtkWidget* dialog) {
        GtkWidget* link = contact(dialog);
        ASSERT_TRUE(link);
        EXPECT_EQ(gtk_widget_get_halign(link), GTK_ALIGN_CENTER);
        EXPECT_EQ(packing_of(link), " [start]");
    });
}

TEST_F(AboutDialog, OnlyTheContactIsShownBeforeItRuns) {
    look([](GtkWidget* dialog) {
        EXPECT_TRUE(gtk_widget_get_visible(contact(dialog)));
        EXPECT_FALSE(gtk_widget_get_visible(dialog));
    });
}

TEST_F(AboutDialog, ContactStandsBelowTheStockContent) {
    look_at_running([](GtkWidget* dialog) {
        GtkWidget* link = contact(dialog);
        const auto children = children_of(content(dialog));
        ASSERT_GE(children.size(), 2U);
        GtkAllocation stock;
        GtkAllocation own;
        gtk_widget_get_allocation(children[0], &stock);
        gtk_widget_get_allocation(link, &own);
        EXPECT_EQ(children[1], link);
        EXPECT_GE(own.y, stock.y + stock.height);
        EXPECT_TRUE(gtk_widget_get_mapped(link));
        EXPECT_GT(own.height, 0);
    });
}

// ---- What it is -----------------------------------------------------------------------------------------------------

TEST_F(AboutDialog, IsStockWithoutAParent) {
    look([](GtkWidget* dialog) {
        EXPECT_STREQ(G_OBJECT_TYPE_NAME(dialog), "GtkAboutDialog");
        EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), nullptr);
        EXPECT_EQ(open_windows(), std::vector<GtkWidget*>{dialog});
        EXPECT_EQ(g_providers, 0);
        GtkWidget* stock = gtk_about_dialog_new();
        EXPECT_EQ(classes_of(dialog), classes_of(stock));
        EXPECT_EQ(children_of(content(dialog)).size(), children_of(content(stock)).size() + 1);
        gtk_widget_destroy(stock);
    });
}

TEST_F(AboutDialog, StaysStockWhileItRuns) {
    look_at_running([](GtkWidget* dialog) { EXPECT_TRUE(gtk_window_get_modal(GTK_WINDOW(dialog))); });
    EXPECT_EQ(g_providers, 0);
}

TEST_F(AboutDialog, AnotherWindowIsNotMadeItsParent) {
    GtkWidget* other = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_widget_show_all(other);
    look([](GtkWidget* dialog) { EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), nullptr); });
    gtk_widget_destroy(other);
}

// ---- Opening and closing --------------------------------------------------------------------------------------------

TEST_F(AboutDialog, EveryResponseClosesIt) {
    for (const int response : {static_cast<int>(GTK_RESPONSE_CLOSE), static_cast<int>(GTK_RESPONSE_CANCEL),
                               static_cast<int>(GTK_RESPONSE_DELETE_EVENT), static_cast<int>(GTK_RESPONSE_NONE),
                               static_cast<int>(GTK_RESPONSE_ACCEPT), static_cast<int>(GTK_RESPONSE_HELP), 0, 42}) {
        in_the_loop([response] { gtk_dialog_response(GTK_DIALOG(g_run.back()), response); });
        show_about_dialog();
        EXPECT_EQ(open_windows().size(), 0U) << response;
    }
    EXPECT_EQ(g_run.size(), 8U);
}

TEST_F(AboutDialog, WindowManagersCloseClosesIt) {
    in_the_loop([] {
        GtkWidget* dialog = g_run.back();
        ASSERT_TRUE(run_loop_until([dialog] { return gtk_widget_get_mapped(dialog); }));
        ask_to_close(dialog);
    });
    show_about_dialog();
    EXPECT_EQ(open_windows().size(), 0U);
}

TEST_F(AboutDialog, ReturnsOnlyWhenItIsClosed) {
    bool returned = false;
    int turns = 0;
    in_the_loop([&] {
        EXPECT_TRUE(run_loop_until([&turns] { return ++turns > 20; }));
        EXPECT_FALSE(returned);
        EXPECT_EQ(open_windows().size(), 1U);
        gtk_dialog_response(GTK_DIALOG(g_run.back()), GTK_RESPONSE_CLOSE);
    });
    show_about_dialog();
    returned = true;
    EXPECT_GT(turns, 20);
}

TEST_F(AboutDialog, OtherWorkGoesOnWhileItRuns) {
    // The check thread hands over its results in this way.
    static int results;
    results = 0;
    g_idle_add(
        [](gpointer) -> gboolean {
            if (++results < 5) return G_SOURCE_CONTINUE;
            gtk_dialog_response(GTK_DIALOG(g_run.back()), GTK_RESPONSE_CLOSE);
            return G_SOURCE_REMOVE;
        },
        nullptr);
    show_about_dialog();
    EXPECT_EQ(results, 5);
}

TEST_F(AboutDialog, SecondDialogRunsInsideTheFirst) {
    std::string story;
    in_the_loop([&story] {
        GtkWidget* first = g_run.back();
        in_the_loop([&story, first] {
            GtkWidget* second = g_run.back();
            EXPECT_NE(second, first);
            EXPECT_EQ(open_windows().size(), 2U);
            EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(second)), nullptr);
            story += "both ";
            gtk_dialog_response(GTK_DIALOG(second), GTK_RESPONSE_CLOSE);
        });
        show_about_dialog();
        story += "first ";
        EXPECT_EQ(open_windows(), std::vector<GtkWidget*>{first});
        gtk_dialog_response(GTK_DIALOG(first), GTK_RESPONSE_CLOSE);
    });
    show_about_dialog();
    EXPECT_EQ(story, "both first ");
    EXPECT_EQ(g_run.size(), 2U);
}

TEST_F(AboutDialog, FirstDialogClosedFirstWaitsForTheSecond) {
    std::string story;
    in_the_loop([&story] {
        GtkWidget* first = g_run.back();
        in_the_loop([&story, first] {
            GtkWidget* second = g_run.back();
            gtk_dialog_response(GTK_DIALOG(first), GTK_RESPONSE_CLOSE);
            in_the_loop([&story, second] {
                story += "waits ";
                gtk_dialog_response(GTK_DIALOG(second), GTK_RESPONSE_CLOSE);
            });
        });
        show_about_dialog();
        story += "second ";
    });
    show_about_dialog();
    story += "first";
    EXPECT_EQ(story, "waits second first");
}

TEST_F(AboutDialog, IsBuiltAnewEachTime) {
    look([](GtkWidget* dialog) { gtk_about_dialog_set_version(GTK_ABOUT_DIALOG(dialog), "changed"); });
    g_run.clear();
    look([](GtkWidget* dialog) {
        EXPECT_EQ(text_of(gtk_about_dialog_get_version(GTK_ABOUT_DIALOG(dialog))), "v" VELDRIN_VERSION);
    });
}

TEST_F(AboutDialog, LeavesNoWidgetBehind) {
    Lives lives;
    look_at_running([&lives](GtkWidget* dialog) {
        lives.watch(dialog);
        EXPECT_GT(lives.count(), 20U);
    });
    EXPECT_TRUE(run_loop_until([&lives] { return lives.count() == 0; })) << lives.count();
}

}  // namespace
