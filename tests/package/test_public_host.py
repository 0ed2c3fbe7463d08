# SPDX-License-Identifier: MIT
"""What a public host reads: its jobs only call the scripts that everybody calls, and each recipe has one; the
forms for bugs and wishes, and the container to develop in, have the form that is asked for."""

import json
import os
import re
import subprocess
from pathlib import Path
from typing import Any

import pytest
import yaml

ROOT = Path(__file__).resolve().parents[2]
WORKFLOWS = sorted((ROOT / ".github/workflows").glob("*.yml"))
FORMS = [ROOT / ".github/ISSUE_TEMPLATE" / name for name in ("bug.yml", "wish.yml")]
# What a step does before the script can run.
PREPARES = re.compile(r"(sudo )?(apt-get|dnf|zypper|pacman|snap|git config) ")


def read(path: Path) -> dict[str, Any]:
    return yaml.safe_load(path.read_text())


def recipes() -> set[str]:
    """What .ci/recipe can build."""
    return set(re.findall(r"^recipe_(\w+)\(\)", (ROOT / ".ci/recipe").read_text(), re.MULTILINE))


def github_jobs() -> dict[str, dict[str, Any]]:
    return {name: job for path in WORKFLOWS for name, job in read(path)["jobs"].items()}


def github_worlds() -> list[tuple[str, list[str]]]:
    """Where each job of GitHub's runs, and the commands that it runs there, once for each row of a matrix."""
    worlds = []
    for job in github_jobs().values():
        rows = job.get("strategy", {}).get("matrix", {}).get("include", [{}])
        for row in rows:
            text = re.sub(r"\$\{\{ matrix\.(\w+) \}\}", lambda name, row=row: row[name[1]], json.dumps(job))
            filled = json.loads(text)
            container = filled.get("container", filled["runs-on"])
            image = container["image"] if isinstance(container, dict) else container
            worlds.append((image, [step["run"] for step in filled["steps"] if "run" in step]))
    return worlds


def gitlab_worlds() -> list[tuple[str, list[str]]]:
    worlds = []
    for name, job in read(ROOT / ".gitlab-ci.yml").items():
        if isinstance(job, dict) and not name.startswith("."):
            rows = job.get("parallel", {}).get("matrix", [{}])
            images = [image for row in rows for image in row.get("IMAGE", [job["image"]])]
            worlds += [(image, [*job["before_script"], *job["script"]]) for image in images]
    return worlds


HOSTS = {"github": github_worlds, "gitlab": gitlab_worlds}


@pytest.mark.parametrize("host", HOSTS)
def test_each_job_prepares_its_world_and_runs_one_script(host):
    worlds = HOSTS[host]()
    assert worlds
    for image, commands in worlds:
        *before, last = commands
        assert all(PREPARES.match(command) for command in before), (image, before)
        script = re.fullmatch(r"(?:sudo )?(\.ci/run|\.ci/recipe (\w+))", last)
        assert script, (image, last)
        assert script[2] is None or script[2] in recipes()
        for command in commands:
            subprocess.run(["bash", "-n", "-c", command], check=True)


@pytest.mark.parametrize("host", HOSTS)
def test_all_checks_run_on_the_system_that_users_have(host):
    assert [image for image, commands in HOSTS[host]() if commands[-1] == ".ci/run"] == ["debian:13"]


def test_each_recipe_is_built_in_its_own_world():
    wanted = {
        ("debian", "deb"), ("ubuntu", "deb"), ("fedora", "rpm"), ("opensuse", "rpm"), ("archlinux", "arch"),
        ("debian", "flatpak"),
    }  # fmt: skip
    built = {}
    for host, worlds in HOSTS.items():
        calls = [(image, re.match(r"(?:sudo )?\.ci/recipe (\w+)", commands[-1])) for image, commands in worlds()]
        built[host] = {(re.split("[/:-]", image)[0], call[1]) for image, call in calls if call}
    assert built["gitlab"] == wanted
    # Its machines have snapd; no container does.
    assert built["github"] == wanted | {("ubuntu", "snap")}
    assert {recipe for _, recipe in built["github"]} == recipes()


def test_the_jobs_scripts_can_be_run():
    for script in (".ci/run", ".ci/recipe"):
        assert os.access(ROOT / script, os.X_OK)
    result = subprocess.run([ROOT / ".ci/recipe", "pie"], capture_output=True, text=True, check=False)
    assert result.returncode == 2
    for recipe in recipes():
        assert f".ci/recipe {recipe} " in result.stderr


def test_the_hosts_may_not_write_into_the_project():
    for path in WORKFLOWS:
        assert read(path)["permissions"] == {"contents": "read"}


# ---- Forms ----


@pytest.mark.parametrize("form", FORMS, ids=lambda form: form.stem)
def test_the_forms_have_the_form_that_is_asked_for(form):
    said = read(form)
    assert set(said) == {"name", "description", "labels", "body"}
    assert len(said["name"]) > 3
    kinds = {
        "markdown": {"value"},
        "textarea": {"label", "description", "placeholder", "value", "render"},
        "input": {"label", "description", "placeholder", "value"},
    }
    for field in said["body"]:
        assert set(field["attributes"]) <= kinds[field["type"]]
        # A language as the host's list has it.
        assert field["attributes"].get("render", "Text") == "Text"
        assert (field["type"] == "markdown") == ("id" not in field)
    answers = [field for field in said["body"] if field["type"] != "markdown"]
    assert any(field.get("validations", {}).get("required") for field in answers)
    for key in (lambda field: field["id"], lambda field: field["attributes"]["label"]):
        assert len({key(field) for field in answers}) == len(answers)


def test_the_form_for_bugs_asks_for_what_a_bug_takes():
    asked = {field["id"]: field for field in read(FORMS[0])["body"]}
    assert set(asked) == {"what", "how", "version", "desktop", "state"}
    told = asked["state"]["attributes"]["description"]
    command = re.search("`(veldrin-window [^`]*)`", told)[1]
    manual = subprocess.run(
        ["mandoc", "-T", "ascii", ROOT / "data/veldrin-window.1"], capture_output=True, text=True, check=True
    ).stdout
    for word in command.split():
        assert word in re.sub(".\b", "", manual)


def test_holes_in_security_are_not_told_in_public():
    said = read(ROOT / ".github/ISSUE_TEMPLATE/config.yml")
    assert said["blank_issues_enabled"] is False
    assert all(set(link) == {"name", "url", "about"} for link in said["contact_links"])
    assert "SECURITY.md" in said["contact_links"][0]["about"]


# ---- The container to develop in ----


def test_the_container_is_the_system_that_users_have_with_all_that_tests_need():
    said = json.loads((ROOT / ".devcontainer/devcontainer.json").read_text())
    assert said["image"] == "debian:13"
    # The tests make namespaces of their own.
    assert said["runArgs"] == ["--privileged"]
    for command in (said["onCreateCommand"], said["postCreateCommand"]):
        subprocess.run(["bash", "-n", "-c", command], check=True)
    assert "install_for_testing" in said["postCreateCommand"]
    assert "\ninstall_for_testing() {" in (ROOT / "tools/common").read_text()
