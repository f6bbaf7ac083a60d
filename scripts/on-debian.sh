#!/usr/bin/env bash
# Runs a command in a copy of this folder as it stands, on a bare Debian: on-debian.sh SUITE COMMAND...
# The bare system of each suite is made once and kept, with the packages that were fetched, in build/debian. For root
# only. Everything is mounted for the command alone, so that nothing stays mounted, whatever ends it.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
source "$(dirname "${BASH_SOURCE[0]}")/lib/mirror.sh"

(($# > 1)) || Fail "usage: $0 SUITE COMMAND..." 2
((EUID == 0)) || Fail "for root only: it makes a system in a folder, mounts and changes the root folder"
refusal=$(unshare --mount --pid --fork true 2>&1) || Fail "this root may not mount: $refusal"

readonly suite=$1 base=$PWD/build/debian/$1
if [[ ! -e $base ]]; then
    scripts/setup.sh debian
    echo "Making a bare $suite"
    mirror=$(MirrorAs "\$(REPO_URI)" | head -n 1)
    rm -rf "$base.new"
    mkdir -p "$base.new" "$base.archives/partial"
    Quietly unshare --mount mmdebstrap --variant=minbase --dpkgopt=force-unsafe-io \
        "$suite" "$base.new" "$mirror" # what is thrown away needs no care
    mv "$base.new" "$base"
fi

# A namespace of processes ends with its first one, and whoever waits for that waits for all of them.
EndNamespace()
{
    pkill -KILL -P "$outside" || true
    CleanUp
}

TMPDIR=$PWD/build/debian MakeWorkFolder
cp -a "$base" "$work/root"
cp /etc/resolv.conf "$work/root/etc/resolv.conf"
mkdir "$work/root/clone"
CopySources "$work/root/clone"
# shellcheck disable=SC2016 # expanded there; bash is to stay the first process
unshare --mount --pid --fork --kill-child bash -c '
    set -e
    mount -t proc proc "$1/proc"
    mount --rbind /dev "$1/dev"
    mount --bind "$2" "$1/var/cache/apt/archives"
    chroot "$1" env -i --default-signal=INT,QUIT --chdir=/clone HOME=/root LANG=C.UTF-8 \
        PATH=/usr/sbin:/usr/bin:/sbin:/bin "${@:3}"
    exit
' - "$work/root" "$base.archives" "${@:2}" <&0 &
outside=$!
trap EndNamespace EXIT
wait "$outside"
