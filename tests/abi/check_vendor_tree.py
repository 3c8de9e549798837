#!/usr/bin/env python3
"""Checks the device tree's files against each other, as far as a host can without Soong.

usage: check_vendor_tree.py ROOT

- TEST_MAPPING is JSON and names only test modules of the tree's Android.bp files.
- The SELinux policy under sepolicy/ is consistent: every type a context file names is
  declared, every hal_<name>... identifier the .te files use is declared (hal_attribute()
  declares hal_<name>, hal_<name>_client and hal_<name>_server), and each domain started by
  init_daemon_domain() has its _exec type.
- Each init .rc a module installs starts the path Soong installs the module at, that path gets
  an exec type of a domain init starts, and the instance the .rc names is declared by the
  module's VINTF manifest fragment.
- Each instance a manifest fragment declares is labelled in service_contexts with a service
  type, its version is a frozen version of the aidl_interface, and a framework compatibility
  matrix in the tree covers it; every matrix entry names an aidl_interface of the tree and
  allows its latest frozen version.

Android.bp files are read as bpfmt writes them (the abi_android_bp_formatted test keeps them so).
Every module of this tree is a vendor module, so binaries install under /vendor/bin.
"""

import json
import os
import re
import subprocess
import sys
import xml.etree.ElementTree as ET

errors = []


def error(message):
    errors.append(message)


def tree_files(root, pattern):
    """The files under root whose base name matches pattern: those git knows (tracked or new)
    when root is a work tree and not ignored in it, which leaves build directories out, every
    one otherwise."""
    def git(*args):
        return subprocess.run(["git", "-C", root] + list(args), capture_output=True, text=True)
    try:
        in_git = (git("rev-parse", "--is-inside-work-tree").returncode == 0
                  and git("check-ignore", "-q", ".").returncode != 0)
    except OSError:
        in_git = False
    if in_git:
        out = git("ls-files", "--cached", "--others", "--exclude-standard").stdout
        paths = [p for p in out.split("\n") if p]
    else:
        paths = []
        for d, dirs, files in os.walk(root):
            dirs[:] = [x for x in dirs if not x.startswith(".")]
            paths += [os.path.relpath(os.path.join(d, f), root) for f in files]
    return sorted(p for p in paths
                  if re.fullmatch(pattern, os.path.basename(p))
                  and os.path.isfile(os.path.join(root, p)))


def read(root, path):
    with open(os.path.join(root, path), encoding="utf-8") as f:
        return f.read()


# ---- Android.bp ----------------------------------------------------------------------------

def string_list(block, prop):
    """The strings of a list or string property at the module's top level."""
    m = re.search(r"^    %s: (\[[^\]]*\]|\"[^\"]*\")" % prop, block, re.M)
    return re.findall(r'"([^"]*)"', m.group(1)) if m else []


def modules(root):
    """(type, name, directory, block text) of every module of every Android.bp."""
    found = []
    for path in tree_files(root, r"Android\.bp"):
        text = read(root, path)
        for m in re.finditer(r"^(\w+) \{\n(.*?)^\}", text, re.M | re.S):
            names = string_list(m.group(2), "name")
            if names:
                found.append((m.group(1), names[0], os.path.dirname(path), m.group(2)))
    return found


# ---- TEST_MAPPING --------------------------------------------------------------------------

def check_test_mapping(root, mods):
    tests = {name for kind, name, _, _ in mods if "test" in kind}
    mappings = tree_files(root, r"TEST_MAPPING")
    if not mappings:
        error("no TEST_MAPPING")
    for path in mappings:
        try:
            mapping = json.loads(read(root, path))
        except json.JSONDecodeError as e:
            error("%s is not JSON: %s" % (path, e))
            continue
        for group, entries in mapping.items():
            if group == "imports":
                continue
            for entry in entries:
                name = entry.get("name")
                if name not in tests:
                    error("%s: %s names %r, which is no test module of the tree's Android.bp"
                          % (path, group, name))


# ---- SELinux -------------------------------------------------------------------------------

IDENT = r"[A-Za-z_][A-Za-z0-9_]*"


def policy(root):
    """Declared types with their attributes, the hal_<name> prefixes, the .te text (comments
    removed) and the labels of the context files: {file: [(key, type)]}."""
    te_text = ""
    for path in tree_files(root, r"(.*\.te|attributes)"):
        if path.startswith("sepolicy/"):
            te_text += re.sub(r"#.*", "", read(root, path)) + "\n"
    declared = {}
    for m in re.finditer(r"^\s*type\s+(%s)\s*(?:,([^;]*))?;" % IDENT, te_text, re.M):
        declared[m.group(1)] = {a.strip() for a in (m.group(2) or "").split(",") if a.strip()}
    for m in re.finditer(r"^\s*attribute\s+(%s)\s*;" % IDENT, te_text, re.M):
        declared[m.group(1)] = {"attribute"}
    prefixes = []
    for m in re.finditer(r"hal_attribute\((%s)\)" % IDENT, te_text):
        base = "hal_" + m.group(1)
        prefixes.append(base)
        for name in (base, base + "_client", base + "_server"):
            declared[name] = {"attribute"}
    labels = {}
    for path in tree_files(root, r"(file|service)_contexts"):
        if not path.startswith("sepolicy/"):
            continue
        entries = []
        for line in read(root, path).splitlines():
            line = line.split("#")[0].strip()
            if not line:
                continue
            fields = line.split()
            m = re.fullmatch(r"u:object_r:(%s):s0" % IDENT, fields[-1])
            if len(fields) < 2 or not m:
                error("%s: cannot read %r" % (path, line))
                continue
            entries.append((fields[0], m.group(1)))
        labels[os.path.basename(path)] = labels.get(os.path.basename(path), []) + entries
    return declared, prefixes, te_text, labels


def check_policy(declared, prefixes, te_text, labels):
    if not prefixes:
        error("sepolicy: no hal_attribute() declares the HAL's attributes")
    for prefix in prefixes:
        for name in sorted(set(re.findall(r"\b%s%s\b" % (prefix, r"[A-Za-z0-9_]*"), te_text))):
            if name not in declared:
                error("sepolicy: %s is used but never declared" % name)
    for contexts, entries in sorted(labels.items()):
        for key, label in entries:
            if label not in declared:
                error("sepolicy/%s: %s is labelled %s, which no .te declares"
                      % (contexts, key, label))
    for domain in re.findall(r"init_daemon_domain\((%s)\)" % IDENT, te_text):
        if "domain" not in declared.get(domain, ()):
            error("sepolicy: init_daemon_domain(%s): %s is not declared a domain"
                  % (domain, domain))
        if "exec_type" not in declared.get(domain + "_exec", ()):
            error("sepolicy: init_daemon_domain(%s) needs the exec type %s_exec"
                  % (domain, domain))
    for t, attrs in sorted(declared.items()):
        if "exec_type" in attrs and t not in [l for _, l in labels.get("file_contexts", [])]:
            error("sepolicy: the exec type %s labels no file in file_contexts" % t)


# ---- init .rc, VINTF manifest fragments, compatibility matrices ----------------------------

def aidl_hals(root, path, kind, searching=False):
    """(name, versions text, instances) of the AIDL HALs of a manifest or matrix file; when
    searching the tree for matrices, files that are not XML are none."""
    try:
        top = ET.fromstring(read(root, path))
    except ET.ParseError as e:
        if not searching:
            error("%s is not XML: %s" % (path, e))
        return []
    if top.tag != kind:
        return []
    hals = []
    for hal in top.findall("hal"):
        if hal.get("format") != "aidl":
            continue
        name = (hal.findtext("name") or "").strip()
        version = (hal.findtext("version") or "1").strip()
        instances = {name + "." + fq.text.strip() for fq in hal.findall("fqname")}
        for iface in hal.findall("interface"):
            for inst in iface.findall("instance"):
                instances.add("%s.%s/%s" % (name, iface.findtext("name").strip(),
                                            inst.text.strip()))
        hals.append((name, version, instances))
    return hals


def in_range(version, allowed):
    low, _, high = allowed.partition("-")
    return int(low) <= int(version) <= int(high or low)


def check_device_files(root, mods, declared, te_text, labels):
    frozen = {}
    for kind, name, directory, block in mods:
        if kind != "aidl_interface":
            continue
        versions = re.findall(r'^\s*version: "(\d+)"', block, re.M) + string_list(block, "versions")
        frozen[name] = sorted({int(v) for v in versions})
        for v in frozen[name]:
            if not os.path.isdir(os.path.join(root, directory, "aidl_api", name, str(v))):
                error("%s: version %d of %s has no aidl_api/%s/%d/" % (directory, v, name, name, v))

    services = dict(labels.get("service_contexts", []))
    exec_paths = labels.get("file_contexts", [])
    daemons = set(re.findall(r"init_daemon_domain\((%s)\)" % IDENT, te_text))

    matrix_hals = [(p, h) for p in tree_files(root, r".*\.xml")
                   for h in aidl_hals(root, p, "compatibility-matrix", searching=True)]
    if not matrix_hals:
        error("no framework compatibility matrix with an AIDL HAL in the tree")
    for path, (name, allowed, _) in matrix_hals:
        if name not in frozen:
            error("%s: %s is no aidl_interface of the tree" % (path, name))
        elif not frozen[name] or not in_range(frozen[name][-1], allowed):
            error("%s: %s version %s does not allow the latest frozen version %s"
                  % (path, name, allowed, frozen[name][-1] if frozen[name] else "(none)"))

    for kind, name, directory, block in mods:
        declared_here = set()
        for fragment in string_list(block, "vintf_fragments"):
            path = os.path.normpath(os.path.join(directory, fragment))
            for hal, version, instances in aidl_hals(root, path, "manifest"):
                declared_here |= instances
                if hal in frozen and int(version) not in frozen[hal]:
                    error("%s: %s version %s is not a frozen version (%s)"
                          % (path, hal, version, frozen[hal]))
                for instance in sorted(instances):
                    label = services.get(instance)
                    if label is None:
                        error("%s declares %s, which sepolicy service_contexts does not label"
                              % (path, instance))
                    elif "service_manager_type" not in declared.get(label, ()):
                        error("service_contexts: %s is labelled %s, not a service type"
                              % (instance, label))
                    if not any(h == hal and in_range(version, allowed) and instance in insts
                               for _, (h, allowed, insts) in matrix_hals):
                        error("%s: no compatibility matrix allows %s version %s"
                              % (path, instance, version))
        for rc in string_list(block, "init_rc"):
            path = os.path.normpath(os.path.join(directory, rc))
            text = read(root, path)
            sub = string_list(block, "relative_install_path")
            installed = "/".join(["/vendor/bin"] + sub + [name])
            for service, binary in re.findall(r"^service\s+(\S+)\s+(\S+)", text, re.M):
                if binary != installed:
                    error("%s: service %s starts %s, but %s installs at %s"
                          % (path, service, binary, name, installed))
            for instance in re.findall(r"^\s*interface\s+aidl\s+(\S+)", text, re.M):
                if instance not in declared_here:
                    error("%s: interface %s is not declared by %s's VINTF fragment"
                          % (path, instance, name))
            exec_types = [t for regex, t in exec_paths if re.fullmatch(regex, installed)]
            if not exec_types:
                error("sepolicy file_contexts: nothing labels %s (%s)" % (installed, name))
            for t in exec_types:
                if not (t.endswith("_exec") and t[:-len("_exec")] in daemons):
                    error("file_contexts: %s is labelled %s, the exec type of no domain that "
                          "init starts" % (installed, t))


def main():
    if len(sys.argv) != 2:
        print(__doc__.split("\n\n")[1], file=sys.stderr)
        return 2
    root = sys.argv[1]
    mods = modules(root)
    check_test_mapping(root, mods)
    declared, prefixes, te_text, labels = policy(root)
    check_policy(declared, prefixes, te_text, labels)
    check_device_files(root, mods, declared, te_text, labels)
    for message in errors:
        print(message)
    if errors:
        return 1
    print("TEST_MAPPING, sepolicy, init .rc, VINTF fragments and compatibility matrices agree "
          "(%d modules, %d declared types and attributes)" % (len(mods), len(declared)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
