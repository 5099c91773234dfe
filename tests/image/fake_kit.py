"""A folder arranged like the official kit, made of this system's own headers and libraries."""
import shutil

from support import root, run

version = "10.0.26100.0"
framework = "1.15"


def make_headers(kit, name=version):
    """Names in letter cases of their own: official ones vary too."""
    include = kit / "Include" / name
    shutil.copytree(root / "platform/include", include / "km")
    (include / "km/crt").mkdir()
    (include / "km/ntifs.h").rename(include / "km/NtIfs.h")
    (include / "shared").mkdir()
    (include / "km/ntdef.h").rename(include / "shared/ntdef.h")
    wdf = kit / "Include/wdf/kmdf" / framework
    wdf.mkdir(parents=True, exist_ok=True)
    shutil.copy(root / "platform/include/wdf.h", wdf / "wdf.h")


def archive(library, *objects):
    result = run("llvm-lib-19", f"/out:{library}", *objects)
    assert result.returncode == 0, result.stdout


def make_libraries(kit, objects):
    """Import libraries and archives out of the objects of an image that was built without the kit."""
    kernel = kit / "Lib" / version / "km/arm64"
    wdf = kit / "Lib/wdf/kmdf/arm64" / framework
    kernel.mkdir(parents=True)
    wdf.mkdir(parents=True)
    shutil.copy(objects / "ntoskrnl.lib", kernel / "ntoskrnl.lib")
    shutil.copy(objects / "wdfldr.lib", wdf / "wdfldr.lib")
    entry = objects / "platform/entry"
    archive(kernel / "BufferOverflowFastFailK.lib", entry / "security_cookie.cpp.obj", entry / "load_config.S.obj")
    archive(kernel / "arm64rt.lib", "/llvmlibempty")
    archive(wdf / "WdfDriverEntry.lib", entry / "framework_entry.cpp.obj")
