#!/usr/bin/env bash
# Compiles the driver's sources for ARM64 with official driver kit headers: those found below the folders given.
# usage: tools/check_kit_sources.sh FOLDER…
# A folder may be an installed kit or any other that holds km/ntifs.h with crt beside it, shared/ntdef.h and
# kmdf/1.15/wdf.h. Nothing is linked; cmake --preset kit builds the image.
set -euo pipefail
if [ $# -eq 0 ]; then
    sed -n '2,5s/^# //p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
folders=$(PYTHONPATH="$root/tools" python3 -B - "$@" <<'PYTHON'
import sys
from pathlib import Path
import official_headers
try:
    print(*official_headers.kit([Path(folder) for folder in sys.argv[1:]]).folders, sep="\n")
except official_headers.Missing as error:
    sys.exit(f"check_kit_sources: {error}")
PYTHON
) || exit 2
{ read -r _crt; read -r km; read -r shared; read -r framework; } <<<"$folders"

# The kit's own arrangement, out of links.
kit=$(mktemp -d)
trap 'rm -rf "$kit"' EXIT
mkdir -p "$kit/Include/found" "$kit/Include/wdf/kmdf"
ln -s "$km" "$kit/Include/found/km"
ln -s "$shared" "$kit/Include/found/shared"
ln -s "$framework" "$kit/Include/wdf/kmdf/1.15"
build="$root/build/kit-sources"
rm -rf "$build"
cmake --preset kit -S "$root" -B "$build" -DWDK_ROOT="$kit" -DMYRTELHAVEN_KIT_COMPILE_ONLY=ON >/dev/null
cmake --build "$build" --target driver_image_objects -- -k 0
echo "Every source of the driver compiles with the kit's headers."
