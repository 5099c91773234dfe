#!/usr/bin/env bash
# Unpacks Debian's ARM64 libraries into a folder that a cross compiler takes as its root. Nothing is installed, and the
# system's own package lists are left alone. Does nothing when the folder is complete already.
# usage: tools/arm64_sysroot.sh FOLDER
set -euo pipefail
if [ $# -ne 1 ]; then
    echo "usage: tools/arm64_sysroot.sh FOLDER" >&2
    exit 2
fi
packages="libc6-dev libstdc++-12-dev libyaml-cpp-dev libfmt-dev libicu-dev libgtest-dev libgmock-dev nlohmann-json3-dev
    libcli11-dev"
mkdir -p "$1"
folder=$(cd "$1" && pwd)
complete="$folder/.packages"
if [ "$(cat "$complete" 2>/dev/null)" = "$packages" ]; then
    exit 0
fi
echo "Unpacking ARM64 libraries into $folder" >&2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/lists/partial" "$work/archives/partial"
fetch=(apt-get -qq -o APT::Architecture=arm64 -o APT::Architectures::=arm64 -o "Dir::State::Lists=$work/lists"
    -o Dir::State::status=/dev/null -o "Dir::Cache=$work" -o Debug::NoLocking=1 -o APT::Sandbox::User=root)
"${fetch[@]}" update
# shellcheck disable=SC2086
"${fetch[@]}" install --download-only --no-install-recommends -y $packages >/dev/null

find "$folder" -mindepth 1 -delete
# As on an installed system, where /lib is a link.
mkdir -p "$folder/usr/lib"
ln -s usr/lib "$folder/lib"
for package in "$work"/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x -C "$folder" --keep-directory-symlink --exclude=./usr/share/doc
done
# Links that leave the folder would lead to libraries of this system.
find "$folder" -type l -lname '/*' | while IFS= read -r link; do
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$folder$(readlink "$link")")" "$link"
done
echo "$packages" >"$complete"
