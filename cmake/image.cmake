# The driver as an ARM64 Windows image, cross-built with clang, lld and llvm's tools.
#
#   include(image)
#   add_driver_image(driver_image NAME TarvenholtMyrtelhavenDriver
#                    [DIRECTORY folder] [VERSION 1.2.3] [SOURCES a.cpp…] [INCLUDES folder…] [UNPROVEN])
#
# makes NAME.sys and NAME.pdb in DIRECTORY (default: <binary dir>/image) out of SOURCES (default: every .cpp below src)
# and the entry stub. The target driver_image has the properties DRIVER_IMAGE, DRIVER_IMAGE_PDB and
# DRIVER_IMAGE_MAP (the addresses of its functions, for tests). UNPROVEN leaves the proofs of platform/asserts out.
# With MYRTELHAVEN_KIT, headers, import libraries and entry stub are those of the official kit (cmake/kit.cmake), else
# those of platform/. Every object is a command of its own in the one build graph: parallel, incremental, with header
# dependencies. NAME of the target with _objects behind it compiles and links nothing.
#
# The bytes depend on the sources and tools alone, not on the folders. Therefore the tools see relative names only: a
# link in the binary directory, IMAGE_LINK, leads to the sources.

set(IMAGE_TOOL_VERSION 19 CACHE STRING "Version suffix of clang, lld-link and llvm's tools")
find_program(IMAGE_CXX_COMPILER NAMES clang++-${IMAGE_TOOL_VERSION} REQUIRED)
find_program(IMAGE_LINKER NAMES lld-link-${IMAGE_TOOL_VERSION} REQUIRED)
find_program(IMAGE_DLLTOOL NAMES llvm-dlltool-${IMAGE_TOOL_VERSION} REQUIRED)
find_program(IMAGE_RESOURCE_COMPILER NAMES llvm-rc-${IMAGE_TOOL_VERSION} REQUIRED)

get_filename_component(IMAGE_ROOT "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(IMAGE_PLATFORM "${IMAGE_ROOT}/platform")
set(IMAGE_LINK image-sources)

# Where the kit's headers come from, and what of the image the driver's own sources don't give.
if(MYRTELHAVEN_KIT)
    include(kit)
    set(IMAGE_ENTRY)
else()
    set(IMAGE_HEADER_OPTIONS -isystem "${IMAGE_LINK}/platform/include")
    set(IMAGE_ENTRY "${IMAGE_PLATFORM}/entry/framework_entry.cpp" "${IMAGE_PLATFORM}/entry/security_cookie.cpp"
                    "${IMAGE_PLATFORM}/entry/load_config.S")
endif()

set(IMAGE_TARGET_OPTIONS --target=aarch64-pc-windows-msvc)
set(IMAGE_COMPILE_OPTIONS
    ${IMAGE_TARGET_OPTIONS}
    -std=c++20 -O2 -fno-strict-aliasing
    # A kernel image: no C++ run time, no standard library.
    -ffreestanding -nostdinc++ -nostdlibinc -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -fms-extensions -fms-compatibility-version=19.40
    # Freestanding alone would leave the unwind data out.
    -fasynchronous-unwind-tables -fno-omit-frame-pointer
    -fstack-protector-strong -Xclang -cfguard
    # Debug information that names no folder of the building machine.
    -g -gcodeview -gno-codeview-command-line -fdebug-compilation-dir=. -ffile-prefix-map=${IMAGE_LINK}/=
    # Constructors of globals would never run; a large frame would need a stack probe.
    -Wall -Wextra -Werror -Werror=global-constructors -Wframe-larger-than=2048)

# The name of a source file or folder as the tools are to see it.
function(image_relative_name path result)
    string(FIND "${path}" "${IMAGE_ROOT}/" position)
    if(position EQUAL 0)
        string(LENGTH "${IMAGE_ROOT}/" length)
        string(SUBSTRING "${path}" ${length} -1 path)
        set(path "${IMAGE_LINK}/${path}")
    endif()
    set(${result} "${path}" PARENT_SCOPE)
endfunction()

# Compiles `source` to `folder`/`name`.obj, tracking the headers it reads.
function(image_compile source folder name)
    cmake_parse_arguments(ARG "" "" "INCLUDES" ${ARGN})
    set(options ${IMAGE_COMPILE_OPTIONS})
    foreach(include IN LISTS ARG_INCLUDES)
        image_relative_name("${include}" include)
        list(APPEND options "-I${include}")
    endforeach()
    if(source MATCHES "\\.cpp$")
        # The debug information would otherwise name the object by its full path.
        list(APPEND options -Xclang "-object-file-name=${name}.obj")
    endif()
    image_relative_name("${source}" shown)
    set(object "${folder}/${name}.obj")
    get_filename_component(object_folder "${object}" DIRECTORY)
    file(MAKE_DIRECTORY "${object_folder}")
    add_custom_command(
        OUTPUT "${object}"
        COMMAND "${IMAGE_CXX_COMPILER}" ${options} ${IMAGE_HEADER_OPTIONS}
                -MD -MF "${object}.d" -MT "${object}" -c "${shown}" -o "${object}"
        DEPENDS "${source}"
        DEPFILE "${object}.d"
        WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}" # which relative names in a DEPFILE refer to
        COMMENT "Compiling ${name} for ARM64 Windows"
        VERBATIM)
endfunction()

# Import library `library` from a module definition.
function(image_import_library definition library)
    add_custom_command(
        OUTPUT "${library}"
        COMMAND "${IMAGE_DLLTOOL}" -m arm64 -d "${definition}" -l "${library}"
        DEPENDS "${definition}"
        COMMENT "Making the import library of ${definition}"
        VERBATIM)
endfunction()

# The names of the import libraries that platform/ defines, and of objects that prove its layouts and values for this
# target; there is nothing to link in the latter.
function(image_platform_libraries work libraries proofs)
    foreach(module IN ITEMS ntoskrnl wdfldr)
        image_import_library("${IMAGE_PLATFORM}/imports/${module}.def" "${work}/${module}.lib")
        list(APPEND made "objects/${module}.lib")
    endforeach()
    file(GLOB assertions CONFIGURE_DEPENDS "${IMAGE_PLATFORM}/asserts/*.cpp")
    foreach(source IN LISTS assertions)
        get_filename_component(name "${source}" NAME)
        image_compile("${source}" "${work}" "platform/asserts/${name}")
        list(APPEND proving "${work}/platform/asserts/${name}.obj")
    endforeach()
    set(${libraries} "${made}" PARENT_SCOPE)
    set(${proofs} "${proving}" PARENT_SCOPE)
endfunction()

# The names of the kit's libraries: links beside the objects, since the PDB keeps the linker's command line.
function(image_kit_libraries work libraries)
    foreach(library IN LISTS IMAGE_KIT_LIBRARIES)
        get_filename_component(name "${library}" NAME)
        file(MAKE_DIRECTORY "${work}")
        file(CREATE_LINK "${library}" "${work}/${name}" SYMBOLIC)
        list(APPEND linked "objects/${name}")
    endforeach()
    set(${libraries} "${linked}" PARENT_SCOPE)
endfunction()

# Compiled version resource `output` for `version`, which has one to four numbers.
function(image_resource source output version)
    string(REPLACE "." ";" numbers "${version}.0.0.0.0")
    list(GET numbers 0 1 2 3 numbers)
    list(JOIN numbers "." four)
    set(definitions)
    foreach(name IN ITEMS MAJOR MINOR PATCH TWEAK)
        list(POP_FRONT numbers number)
        list(APPEND definitions -D "DRIVER_VERSION_${name}=${number}")
    endforeach()
    # The resource compiler takes an absolute name below a folder such as /check for its option /C.
    image_relative_name("${source}" shown)
    add_custom_command(
        OUTPUT "${output}"
        COMMAND "${IMAGE_RESOURCE_COMPILER}" ${definitions} -FO "${output}" "${shown}"
        DEPENDS "${source}"
        WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
        COMMENT "Compiling the version resource, ${four}"
        VERBATIM)
endfunction()

function(add_driver_image target)
    cmake_parse_arguments(ARG "UNPROVEN" "NAME;DIRECTORY;VERSION" "SOURCES;INCLUDES" ${ARGN})
    if(NOT ARG_DIRECTORY)
        set(ARG_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/image")
    endif()
    if(NOT ARG_SOURCES)
        file(GLOB_RECURSE ARG_SOURCES CONFIGURE_DEPENDS "${IMAGE_ROOT}/src/*.cpp")
        set(ARG_INCLUDES "${IMAGE_ROOT}/src" "${IMAGE_ROOT}/include")
    endif()
    if(NOT ARG_VERSION)
        set(ARG_VERSION "${PROJECT_VERSION}")
    endif()
    set(work "${ARG_DIRECTORY}/objects")
    set(image "${ARG_DIRECTORY}/${ARG_NAME}.sys")
    set(pdb "${ARG_DIRECTORY}/${ARG_NAME}.pdb")
    set(map "${ARG_DIRECTORY}/${ARG_NAME}.map")

    file(CREATE_LINK "${IMAGE_ROOT}" "${CMAKE_CURRENT_BINARY_DIR}/${IMAGE_LINK}" SYMBOLIC)
    set(objects)
    foreach(source IN LISTS ARG_SOURCES IMAGE_ENTRY)
        get_filename_component(source "${source}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
        file(RELATIVE_PATH name "${IMAGE_ROOT}" "${source}")
        string(REPLACE "../" "" name "${name}")
        image_compile("${source}" "${work}" "${name}" INCLUDES ${ARG_INCLUDES})
        list(APPEND objects "objects/${name}.obj")
    endforeach()

    list(TRANSFORM objects PREPEND "${ARG_DIRECTORY}/" OUTPUT_VARIABLE object_files)
    add_custom_target(${target}_objects DEPENDS ${object_files})
    if(MYRTELHAVEN_KIT_COMPILE_ONLY)
        return()
    endif()

    if(MYRTELHAVEN_KIT)
        image_kit_libraries("${work}" libraries)
    else()
        image_platform_libraries("${work}" libraries proofs)
    endif()
    if(ARG_UNPROVEN)
        set(proofs)
    endif()
    image_resource("${IMAGE_PLATFORM}/resource/driver.rc" "${work}/driver.res" "${ARG_VERSION}")

    string(REGEX MATCH "^[0-9]+\\.[0-9]+" link_version "${ARG_VERSION}")
    set(inputs ${objects} ${libraries} objects/driver.res)
    list(TRANSFORM inputs PREPEND "${ARG_DIRECTORY}/" OUTPUT_VARIABLE input_files)
    # Relative names only: the PDB keeps this command line.
    add_custom_command(
        OUTPUT "${image}" "${pdb}"
        BYPRODUCTS "${map}"
        COMMAND "${IMAGE_LINKER}" ${inputs} "/out:${ARG_NAME}.sys" "/pdb:${ARG_NAME}.pdb" "/pdbaltpath:${ARG_NAME}.pdb" "/map:${ARG_NAME}.map"
                /pdbsourcepath:/ /debug /Brepro /driver:wdm /machine:arm64 /entry:FxDriverEntry /nodefaultlib
                /subsystem:native,10.0 /osversion:10.0 "/version:${link_version}" /release /guard:cf /opt:ref,icf
                /highentropyva /dynamicbase /nxcompat /tsaware:no /merge:.00cfg=.rdata
                /section:.text,ERP /section:.rdata,RP /section:.data,RWP /section:INIT,ERD
        DEPENDS ${input_files} ${proofs}
        WORKING_DIRECTORY "${ARG_DIRECTORY}"
        COMMENT "Linking ${ARG_NAME}.sys"
        VERBATIM)

    add_custom_target(${target} ALL DEPENDS "${image}" "${pdb}")
    set_target_properties(${target} PROPERTIES DRIVER_IMAGE "${image}" DRIVER_IMAGE_PDB "${pdb}" DRIVER_IMAGE_MAP "${map}")
endfunction()
