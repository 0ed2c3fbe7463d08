# SPDX-License-Identifier: MIT
"""What snapcraft and flatpak-builder ask of their recipes, as far as it can be told without them. Each function returns
what is wrong, one complaint for each fault."""

import re
from collections.abc import Iterable, Iterator
from pathlib import Path
from typing import Any

# ---- Snap, as documented for the base core24 ----

SNAP_KEYS = {
    "name", "title", "base", "build-base", "version", "adopt-info", "grade", "confinement", "type", "license",
    "summary", "description", "contact", "website", "issues", "source-code", "donation", "icon", "platforms",
    "package-repositories", "environment", "plugs", "slots", "hooks", "layout", "apps", "parts", "lint", "assumes",
    "compression", "epoch", "system-usernames", "ua-services", "links",
}  # fmt: skip
SNAP_REQUIRED = {"name", "version", "summary", "description", "base", "grade", "confinement", "parts", "platforms"}
APP_KEYS = {
    "command", "command-chain", "common-id", "desktop", "autostart", "extensions", "plugs", "slots", "environment",
    "daemon", "completer", "aliases", "passthrough", "timer", "sockets", "stop-command", "refresh-mode",
}  # fmt: skip
PART_KEYS = {
    "plugin", "source", "source-type", "source-tag", "source-branch", "source-commit", "source-depth", "source-subdir",
    "source-checksum", "after", "build-snaps", "build-packages", "build-environment", "build-attributes", "stage-snaps",
    "stage-packages", "organize", "stage", "prime", "override-pull", "override-build", "override-stage",
    "override-prime", "parse-info", "permissions", "disable-parallel", "filesets",
}  # fmt: skip
PLUGIN_KEYS = {
    "cmake": {"cmake-parameters", "cmake-generator"},
    "meson": {"meson-parameters"},
    "autotools": {"autotools-configure-parameters", "autotools-bootstrap-parameters"},
    "dump": set(),
    "nil": set(),
}
EXTENSIONS = {"gnome", "kde-neon-6", "kde-qt6", "env-injector", "ros2-jazzy"}
INTERFACES = {
    "network", "network-bind", "network-status", "desktop", "desktop-legacy", "wayland", "x11", "unity7", "opengl",
    "home", "gsettings", "system-observe", "kernel-module-observe", "hardware-observe", "mount-observe",
    "audio-playback", "removable-media",
}  # fmt: skip


# What the extension adds to an app by itself.
GNOME_PLUGS = {
    "desktop", "desktop-legacy", "gsettings", "opengl", "wayland", "x11", "mount-observe", "calendar-service",
}  # fmt: skip


def unknown(keys: Iterable[str], known: set[str], where: str) -> Iterator[str]:
    for key in keys:
        if key not in known:
            yield f"{where}: no such key: {key}"


def snap_faults(recipe: dict[str, Any], root: Path) -> list[str]:
    return [*snap_head_faults(recipe, root), *snap_app_faults(recipe), *snap_part_faults(recipe, root)]


def snap_head_faults(recipe: dict[str, Any], root: Path) -> Iterator[str]:
    yield from unknown(recipe, SNAP_KEYS, "snap")
    for key in SNAP_REQUIRED - recipe.keys():
        yield f"snap: no {key}"
    if not re.fullmatch(r"(?=.*[a-z])[a-z0-9]+(-[a-z0-9]+)*", str(recipe.get("name"))) or len(recipe["name"]) > 40:
        yield "snap: not a name for a Snap"
    if not isinstance(recipe.get("version"), str) or not re.fullmatch(r"[a-zA-Z0-9][\w.+:~-]{0,31}", recipe["version"]):
        yield "snap: not a text of at most 32 characters as version"
    if len(recipe.get("summary", "")) > 78:
        yield "snap: summary of more than 78 characters"
    if recipe.get("base") != "core24":
        yield "snap: another base than these rules are for"
    if recipe.get("grade") not in ("stable", "devel"):
        yield "snap: grade"
    if recipe.get("confinement") not in ("strict", "devmode", "classic"):
        yield "snap: confinement"
    if "icon" in recipe and not (root / recipe["icon"]).is_file():
        yield "snap: no such icon"


def snap_app_faults(recipe: dict[str, Any]) -> Iterator[str]:
    for name, app in recipe.get("apps", {}).items():
        yield from unknown(app, APP_KEYS, name)
        if str(app.get("command", "/")).startswith(("/", "$")):
            yield f"{name}: the command is no path below the Snap"
        for plug in app.get("plugs", []):
            if plug not in INTERFACES and plug not in recipe.get("plugs", {}):
                yield f"{name}: no such plug: {plug}"
            if plug in GNOME_PLUGS and "gnome" in app.get("extensions", []):
                yield f"{name}: the extension gnome brings the plug {plug}"
        for extension in app.get("extensions", []):
            if extension not in EXTENSIONS:
                yield f"{name}: no such extension: {extension}"
        if not app.get("autostart", ".desktop").endswith(".desktop") or "/" in app.get("autostart", ""):
            yield f"{name}: autostart is no name of a desktop entry"
        made = {place for part in recipe.get("parts", {}).values() for place in part.get("organize", {}).values()}
        for link in app.get("command-chain", []):
            if link not in made:
                yield f"{name}: no part brings {link}"


def snap_part_faults(recipe: dict[str, Any], root: Path) -> Iterator[str]:
    for name, part in recipe.get("parts", {}).items():
        plugin = part.get("plugin")
        if plugin not in PLUGIN_KEYS:
            yield f"{name}: no such plugin: {plugin}"
        yield from unknown(part, PART_KEYS | PLUGIN_KEYS.get(plugin, set()), name)
        source = part.get("source")
        if source is None:
            if plugin != "nil":
                yield f"{name}: no source"
        elif "://" not in source and not (root / source).is_dir():
            yield f"{name}: no such source: {source}"
        for other in part.get("after", []):
            if other not in recipe["parts"]:
                yield f"{name}: comes after a part that there is not: {other}"
        if plugin == "dump":
            for file in part.get("organize", {}):
                if not (root / source / file).exists():
                    yield f"{name}: no such file: {file}"


# ---- Flatpak, as documented in flatpak-manifest(5) and flatpak-metadata(5) ----

MANIFEST_KEYS = {
    "id", "app-id", "branch", "runtime", "runtime-version", "sdk", "base", "base-version", "command", "finish-args",
    "build-options", "modules", "cleanup", "cleanup-commands", "sdk-extensions", "add-extensions", "rename-icon",
    "rename-desktop-file", "rename-appdata-file", "copy-icon", "separate-locales", "tags", "desktop-file-name-prefix",
}  # fmt: skip
MODULE_KEYS = {
    "name", "buildsystem", "builddir", "subdir", "config-opts", "make-args", "make-install-args", "rm-configure",
    "no-autogen", "no-parallel-make", "no-make-install", "build-options", "build-commands", "post-install", "sources",
    "cleanup", "cleanup-platform", "modules", "disabled", "only-arches", "skip-arches", "run-tests", "install-rule",
}  # fmt: skip
BUILD_SYSTEMS = {"autotools", "cmake", "cmake-ninja", "meson", "simple", "qmake"}
SOURCE_KEYS = {
    "archive": {"type", "url", "path", "sha256", "sha512", "strip-components", "dest", "dest-filename", "mirror-urls",
                "archive-type", "only-arches", "skip-arches"},
    "git": {"type", "url", "path", "tag", "commit", "branch", "dest", "disable-submodules", "disable-shallow-clone",
            "only-arches", "skip-arches"},
    "dir": {"type", "path", "skip", "dest", "only-arches", "skip-arches"},
    "file": {"type", "url", "path", "sha256", "dest", "dest-filename", "only-arches", "skip-arches"},
    "patch": {"type", "path", "paths", "strip-components", "use-git", "options", "dest"},
}  # fmt: skip
PERMISSION = re.compile(
    r"--share=(network|ipc)"
    r"|--socket=(wayland|x11|fallback-x11|pulseaudio|session-bus|ssh-auth)"
    r"|--device=(dri|all|kvm|shm)"
    r"|--(talk|own)-name=[A-Za-z_][\w-]*(\.[A-Za-z_][\w-]*)+(\.\*)?"
    r"|--filesystem=(home|host|host-etc|host-os|xdg-[a-z]+(/[^:]+)?|[~/][^:]*)(:(ro|rw|create))?"
    r"|--persist=[^/:]+"
    r"|--env=\w+=.*"
)
# The modules that applications share, from a folder of theirs beside the manifest.
SHARED = re.compile(r"shared-modules/[\w-]+/[\w-]+\.json")
CHECKERS = {
    "html": {"url", "version-pattern", "url-template"},
    "git": {"tag-pattern"},
    "anitya": {"project-id", "url-template"},
}


def plain(keys: Iterable[str]) -> list[str]:
    """Without those that flatpak-builder leaves to whoever writes them."""
    return [key for key in keys if not key.startswith("x-")]


def flatpak_faults(manifest: dict[str, Any], folder: Path) -> list[str]:
    faults = list(unknown(plain(manifest), MANIFEST_KEYS, "manifest"))
    if not re.fullmatch(r"[A-Za-z_][\w-]*(\.[A-Za-z_][\w-]*){2,}", str(manifest.get("id"))):
        faults.append("manifest: not an id")
    for key in ("runtime", "runtime-version", "sdk", "command"):
        if not isinstance(manifest.get(key), str):
            faults.append(f"manifest: no text as {key}")
    for permission in manifest.get("finish-args", []):
        if not PERMISSION.fullmatch(permission):
            faults.append(f"manifest: not a permission: {permission}")
    modules = [module for module in manifest.get("modules", []) if isinstance(module, dict)]
    for module in manifest.get("modules", []):
        if not isinstance(module, dict) and not SHARED.fullmatch(str(module)):
            faults.append(f"manifest: no shared module: {module}")
    names = [module.get("name") for module in modules]
    for name in {name for name in names if names.count(name) > 1}:
        faults.append(f"manifest: several modules are called {name}")
    for module in modules:
        faults += module_faults(module, folder)
    return faults


def module_faults(module: dict[str, Any], folder: Path) -> Iterator[str]:
    name = module.get("name", "a module without a name")
    if "name" not in module:
        yield name
    yield from unknown(plain(module), MODULE_KEYS, name)
    if module.get("buildsystem", "autotools") not in BUILD_SYSTEMS:
        yield f"{name}: no such build system"
    if module.get("buildsystem") == "simple" and not module.get("build-commands"):
        yield f"{name}: nothing says how to build it"
    if not module.get("sources"):
        yield f"{name}: no sources"
    for source in module.get("sources") or []:
        yield from source_faults(name, source, folder)


def source_faults(name: str, source: dict[str, Any], folder: Path) -> Iterator[str]:
    kind = source.get("type")
    if kind not in SOURCE_KEYS:
        yield f"{name}: no such kind of source: {kind}"
        return
    yield from unknown(plain(source), SOURCE_KEYS[kind], name)
    if "url" in source and not source["url"].startswith("https://"):
        yield f"{name}: a source from an address that is not https"
    if kind in ("dir", "patch") and not (folder / source.get("path", "missing")).exists():
        yield f"{name}: no such path"
    if kind in ("archive", "git", "file") and not source.keys() & {"url", "path"}:
        yield f"{name}: a source from nowhere"
    if "sha256" in source and not re.fullmatch(r"[0-9a-f]{64}", source["sha256"]):
        yield f"{name}: not a checksum"
    if "commit" in source and not re.fullmatch(r"[0-9a-f]{40}", source["commit"]):
        yield f"{name}: not a commit"
    pin = {"archive": "sha256", "file": "sha256", "git": "commit"}.get(kind)
    if pin and "url" in source:
        if pin not in source:
            yield f"{name}: no {pin} pins the source"
        checker = source.get("x-checker-data", {})
        if checker.get("type") not in CHECKERS or checker.keys() - {"type"} != CHECKERS[checker["type"]]:
            yield f"{name}: nothing looks for newer versions of the source"
    if kind == "file" and "path" in source and not (folder / source["path"]).is_file():
        yield f"{name}: no such file"
    if kind == "git" and not source.keys() & {"commit", "tag"}:
        yield f"{name}: neither a commit nor a tag"
