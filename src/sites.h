// The addresses that the program asks and names: constants, for any thread. Each can be set by the CMake cache variable
// of its name, so that an organisation with a mirror of its own builds its own Veldrin.
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

/// Returns the host's name in a site's address.
constexpr std::string_view host_of(std::string_view site) {
    site.remove_prefix(site.find("://") + 3);
    return site.substr(0, site.find('/'));
}
