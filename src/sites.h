// SPDX-License-Identifier: MIT
// The addresses that the program asks and names: constants, for any thread. Each can be set by the CMake cache variable
// of its name, so that an organisation with a mirror of its own builds its own Veldrin. One that would be used wrongly
// does not compile.
#pragma once

#include <string_view>

// Every site is the scheme https, a host and a closing slash.

#ifndef VELDRIN_RELEASE_SITE
#define VELDRIN_RELEASE_SITE "https://www.kernel.org/"
#endif

#ifndef VELDRIN_RELEASE_APEX
#define VELDRIN_RELEASE_APEX "https://kernel.org/"
#endif

#ifndef VELDRIN_RELEASE_CDN
#define VELDRIN_RELEASE_CDN "https://cdn.kernel.org/"
#endif

#ifndef VELDRIN_GIT_BROWSER
#define VELDRIN_GIT_BROWSER "https://git.kernel.org/"
#endif

// A path below the git browser, without slashes at its ends.
#ifndef VELDRIN_MAINLINE_TREE
#define VELDRIN_MAINLINE_TREE "pub/scm/linux/kernel/git/mainkeeper/linux.git"
#endif

#ifndef VELDRIN_WEBSITE
#define VELDRIN_WEBSITE "https://veldrin.example/"
#endif

#ifndef VELDRIN_CONTACT
#define VELDRIN_CONTACT "support@veldrin.example"
#endif

/// The bytes that an address may hold. None ends the single quotes around it in a command.
inline constexpr std::string_view ADDRESS_BYTES =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
    "-._~:/?#[]@!$&()*+,;=%";

/// Returns the host's name in a site's address.
constexpr std::string_view host_of(std::string_view site) {
    site.remove_prefix(site.find("://") + 3);
    return site.substr(0, site.find('/'));
}

// ---- What a builder's own values must be ----------------------------------------------------------------------------

/// Says whether `text` holds no byte but those of `permitted`.
constexpr bool holds_only(std::string_view text, std::string_view permitted) {
    return text.find_first_not_of(permitted) == std::string_view::npos;
}

/// Returns what stands in `site` between its scheme and the slash at its end.
constexpr std::string_view inner_part(std::string_view site) {
    constexpr size_t SCHEME = std::string_view("https://").size();
    std::string_view inner = site.substr(site.size() < SCHEME ? site.size() : SCHEME);
    if (inner.ends_with('/')) inner.remove_suffix(1);
    return inner;
}

/// Says whether `address` begins with a scheme, and goes on behind it.
constexpr bool has_scheme(std::string_view address) {
    const size_t end = address.find("://");
    return end != std::string_view::npos && end > 0 && end + 3 < address.size() &&
           holds_only(address.substr(0, end), "abcdefghijklmnopqrstuvwxyz");
}

/// Says whether `text` is a path, without slashes at its ends and with nothing behind it.
constexpr bool is_bare_path(std::string_view text) {
    return !text.empty() && !text.starts_with('/') && !text.ends_with('/') &&
           text.find_first_of("?#") == std::string_view::npos;
}

/// Says whether `text` is a name, one @ and a host.
constexpr bool is_mailbox(std::string_view text) {
    const size_t at = text.find('@');
    return at != std::string_view::npos && at > 0 && at + 1 < text.size() && text.rfind('@') == at;
}

// A macro, since nothing else puts a name into the words of a static_assert.
#define VELDRIN_CHECK_SITE(site)                                                                                  \
    static_assert(std::string_view(site).starts_with("https://"), #site " must begin with https://");             \
    static_assert(std::string_view(site).ends_with('/'),                                                          \
                  #site " must end with a slash: without it, a host whose name goes on would pass for this one"); \
    static_assert(!inner_part(site).empty(), #site " must name a host");                                          \
    static_assert(inner_part(site).find_first_of("/?#") == std::string_view::npos,                                \
                  #site " must hold nothing but a host between its scheme and the slash at its end");             \
    static_assert(holds_only(site, ADDRESS_BYTES), #site " holds a byte that an address must not hold")

VELDRIN_CHECK_SITE(VELDRIN_RELEASE_SITE);
VELDRIN_CHECK_SITE(VELDRIN_RELEASE_APEX);
VELDRIN_CHECK_SITE(VELDRIN_RELEASE_CDN);
VELDRIN_CHECK_SITE(VELDRIN_GIT_BROWSER);
#undef VELDRIN_CHECK_SITE

static_assert(is_bare_path(VELDRIN_MAINLINE_TREE), "VELDRIN_MAINLINE_TREE must be a path without slashes at its ends");
static_assert(holds_only(VELDRIN_MAINLINE_TREE, ADDRESS_BYTES),
              "VELDRIN_MAINLINE_TREE holds a byte that an address must not hold");

// The About dialog shows it without its scheme.
static_assert(has_scheme(VELDRIN_WEBSITE), "VELDRIN_WEBSITE must begin with a scheme, such as https://");

// It stands between double quotes in a script of bash, and in a mailto: link, where other bytes would have a meaning.
static_assert(holds_only(VELDRIN_CONTACT, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._+-@"),
              "VELDRIN_CONTACT must hold nothing but letters, digits and the characters ._+-@");
static_assert(is_mailbox(VELDRIN_CONTACT), "VELDRIN_CONTACT must be a name, one @ and a host");
