# The official driver kit in place of platform/: its headers, import libraries and entry stub.
#
#   cmake --preset kit -DWDK_ROOT=/path/to/Windows\ Kits/10 [-DWDK_VERSION=10.0.26100.0]
#
# Sets IMAGE_HEADER_OPTIONS, what the compiler needs to find the kit's headers, and IMAGE_KIT_LIBRARIES. Names are found
# whatever their letter case: the kit is made for a system that doesn't mind.

set(WDK_ROOT "" CACHE PATH "The kit's folder, which holds Include and Lib")
set(WDK_VERSION "" CACHE STRING "The kit's version, as a folder below Include is named; the newest one when empty")
set(WDK_KMDF_VERSION 1.15 CACHE STRING "The framework's version")
option(MYRTELHAVEN_KIT_COMPILE_ONLY "Compile the driver with the kit's headers and link nothing" OFF)

# The file or folder of a path below `root`; empty when there is none.
function(kit_path root path result)
    set(found "${root}")
    string(REPLACE "/" ";" names "${path}")
    foreach(name IN LISTS names)
        string(TOLOWER "${name}" wanted)
        file(GLOB entries LIST_DIRECTORIES true "${found}/*")
        set(found "")
        foreach(entry IN LISTS entries)
            get_filename_component(entry_name "${entry}" NAME)
            string(TOLOWER "${entry_name}" entry_name)
            if(entry_name STREQUAL wanted)
                set(found "${entry}")
            endif()
        endforeach()
        if(NOT found)
            break()
        endif()
    endforeach()
    set(${result} "${found}" PARENT_SCOPE)
endfunction()

# Appends to `result` the file or folder of a path below the kit's folder, or to kit_missing what isn't there.
macro(kit_need path result)
    kit_path("${WDK_ROOT}" "${path}" kit_found)
    if(kit_found)
        list(APPEND ${result} "${kit_found}")
    else()
        list(APPEND kit_missing "${path}")
    endif()
endmacro()

if(NOT WDK_ROOT)
    message(FATAL_ERROR "Where is the kit? Set WDK_ROOT to its folder, the one that holds Include and Lib.")
elseif(NOT IS_DIRECTORY "${WDK_ROOT}")
    message(FATAL_ERROR "WDK_ROOT is ${WDK_ROOT}, which is not a folder.")
endif()
set(kit_version "${WDK_VERSION}")
if(NOT kit_version)
    kit_path("${WDK_ROOT}" Include kit_include)
    file(GLOB kit_versions RELATIVE "${kit_include}" "${kit_include}/*/[Kk][Mm]")
    list(SORT kit_versions COMPARE NATURAL ORDER DESCENDING)
    if(kit_versions)
        list(GET kit_versions 0 kit_version)
        get_filename_component(kit_version "${kit_version}" DIRECTORY)
    endif()
endif()
if(NOT kit_version)
    message(FATAL_ERROR "WDK_ROOT is ${WDK_ROOT}, which holds no kernel headers: no folder Include/VERSION/km.")
endif()

set(kit_missing)
set(kit_includes)
set(kit_headers) # only looked for
foreach(folder IN ITEMS km/crt km shared)
    kit_need("Include/${kit_version}/${folder}" kit_includes)
endforeach()
kit_need("Include/wdf/kmdf/${WDK_KMDF_VERSION}" kit_includes)
foreach(header IN ITEMS "${kit_version}/km/ntifs.h" "${kit_version}/shared/ntdef.h"
                        "wdf/kmdf/${WDK_KMDF_VERSION}/wdf.h")
    kit_need("Include/${header}" kit_headers)
endforeach()

# What the kit's own build gives the linker for an ARM64 KMDF driver, less what this driver imports nothing from.
set(IMAGE_KIT_LIBRARIES)
if(NOT MYRTELHAVEN_KIT_COMPILE_ONLY)
    foreach(library IN ITEMS BufferOverflowFastFailK ntoskrnl arm64rt)
        kit_need("Lib/${kit_version}/km/arm64/${library}.lib" IMAGE_KIT_LIBRARIES)
    endforeach()
    foreach(library IN ITEMS WdfLdr WdfDriverEntry)
        kit_need("Lib/wdf/kmdf/arm64/${WDK_KMDF_VERSION}/${library}.lib" IMAGE_KIT_LIBRARIES)
    endforeach()
endif()
if(kit_missing)
    list(JOIN kit_missing "\n  " kit_missing)
    message(FATAL_ERROR "The kit in ${WDK_ROOT}, version ${kit_version}, lacks:\n  ${kit_missing}")
endif()
message(STATUS "Driver kit: ${WDK_ROOT}, version ${kit_version}, KMDF ${WDK_KMDF_VERSION}")

find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(kit_overlay "${CMAKE_CURRENT_BINARY_DIR}/kit-headers.yaml")
execute_process(COMMAND "${Python3_EXECUTABLE}" -B "${CMAKE_CURRENT_LIST_DIR}/../tools/header_overlay.py"
                        "${kit_overlay}" ${kit_includes}
                COMMAND_ERROR_IS_FATAL ANY)
set(IMAGE_HEADER_OPTIONS --config "${CMAKE_CURRENT_LIST_DIR}/kit-definitions.cfg" -D_ARM64_ -DARM64
    "-ffile-prefix-map=${WDK_ROOT}/=kit/" -ivfsoverlay "${kit_overlay}")
foreach(folder IN LISTS kit_includes)
    list(APPEND IMAGE_HEADER_OPTIONS -isystem "${folder}")
endforeach()
