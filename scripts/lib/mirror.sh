# shellcheck shell=bash
# Debian's packages from this machine's own mirror. Needs no root and leaves the machine's own package lists alone.

codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)

# In the format of "apt-get indextargets", each line once.
MirrorAs()
{
    apt-get indextargets --no-release-info --format "$1" "Identifier: Packages" "Component: main" \
        "Release: $codename" | sort -u
}

# OpenMirror FOLDER TYPE [OPTION...]: from then on "${apt[@]}" is apt-get with its state in FOLDER. TYPE and its options
# are those of a line in sources.list, "deb-src".
OpenMirror()
{
    mkdir -p "$1"/{lists,archives}/partial
    : >"$1/status"
    MirrorAs "$2 \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" >"$1/sources.list"
    apt=(apt-get -qq -o APT::Sandbox::User=root -o Dir::State="$1" -o Dir::State::Lists="$1/lists"
        -o Dir::State::status="$1/status" -o Dir::Cache="$1" -o Dir::Cache::archives="$1/archives"
        -o Dir::Etc::SourceList="$1/sources.list" -o Dir::Etc::SourceParts=- "${@:3}")
    Quietly "${apt[@]}" update
}
