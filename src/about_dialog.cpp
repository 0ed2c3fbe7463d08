// SPDX-License-Identifier: MIT
// The licence text, then the dialog from its name to its contact.
#include "about_dialog.h"

#include "logo_rgba.h"
#include "sites.h"

#include <gtk/gtk.h>
#include <string>
#include <string_view>

namespace {

/// Returns the text behind the button "License": the disclaimer, and whose work the program uses.
std::string license_text() {
    std::string text =
        "DISCLAIMER\n"
        "\n"
        "This software is provided \"as is\", without warranty of any kind, express or implied, including but not "
        "limited to the warranties of merchantability, fitness for a particular purpose and noninfringement.\n"
        "\n"
        "In no event shall the author be liable for any claim, damages or other liability arising from the use of this "
        "software.\n"
        "\n"
        "LINUX AND TRADEMARKS\n"
        "\n"
        "The copyright of the Linux kernel lies with its creator, Linus Torvalds, and the thousands of contributors to "
        "the kernel. It is released under the GNU General Public License, version 2.\n"
        "\n"
        "Linux® is a registered trademark of Linus Torvalds in the U.S. and other countries. All other trademarks "
        "are the property of their respective owners.\n"
        "\n"
        "Kernhaven is operated by The Linux Kernel Organization, Inc., a California 501(c)3 nonprofit corporation.\n"
        "\n"
        "Veldrin is an independent application. It is not affiliated with, sponsored or endorsed by Linus Torvalds, "
        "The Linux Kernel Organization or The Linux Foundation.\n"
        "\n"
        "ARTWORK\n"
        "\n"
        "Tux the penguin was first drawn by Larry Ewing (lewing@isc.tamu.edu) and was created with The GIMP.\n"
        "\n"
        "DATA SOURCE\n"
        "\n"
        "Kernel versions and changelogs are retrieved from Kernhaven while the application runs — from ";
    text += host_of(VELDRIN_RELEASE_SITE);
    text += ", ";
    text += host_of(VELDRIN_RELEASE_CDN);
    text += " and ";
    text += host_of(VELDRIN_GIT_BROWSER);
    text +=
        ".\n"
        "\n"
        "Content on Kernhaven is made available under the Creative Commons Attribution-ShareAlike 4.0 International "
        "License. Changelog entries are kernel commit messages and remain under the licenses of their respective "
        "authors. This application only displays that content; it does not redistribute it.";
    return text;
}

/// Returns `address` without its scheme.
const char* without_scheme(const char* address) {
    return address + std::string_view(address).find("://") + 3;
}

void set_logo(GtkAboutDialog* about) {
    GdkPixbuf* logo = gdk_pixbuf_new_from_data(logo_rgba, GDK_COLORSPACE_RGB, TRUE, 8, LOGO_SIZE, LOGO_SIZE,
                                               LOGO_SIZE * 4, nullptr, nullptr);
    if (!logo) return;
    gtk_about_dialog_set_logo(about, logo);
    g_object_unref(logo);
}

}  // namespace

void show_about_dialog() {
    GtkWidget* dialog = gtk_about_dialog_new();
    auto* about = GTK_ABOUT_DIALOG(dialog);
    gtk_about_dialog_set_program_name(about, "Veldrin");
    gtk_about_dialog_set_version(about, "v1.3");
    set_logo(about);
    gtk_about_dialog_set_copyright(about, "Copyright © 2026\nThe Veldrin developers");
    gtk_about_dialog_set_website(about, VELDRIN_WEBSITE);
    gtk_about_dialog_set_website_label(about, without_scheme(VELDRIN_WEBSITE));
    gtk_about_dialog_set_comments(about, "Monitors Linux kernel releases from Kernhaven");
    gtk_about_dialog_set_license(about, license_text().c_str());
    gtk_about_dialog_set_wrap_license(about, TRUE);

    GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(dialog));
    GtkWidget* contact = gtk_link_button_new_with_label("mailto:" VELDRIN_CONTACT, VELDRIN_CONTACT);
    gtk_widget_set_halign(contact, GTK_ALIGN_CENTER);
    gtk_box_pack_start(GTK_BOX(content), contact, FALSE, FALSE, 0);
    gtk_widget_show(contact);

    gtk_dialog_run(GTK_DIALOG(dialog));
    gtk_widget_destroy(dialog);
}
