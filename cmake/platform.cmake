# The platform layer in a native build.
#
#   platform_headers   the kit's headers under their official names, and the character types they need
#   platform_asserts   compile-time proof of every layout and value (an object library, nothing to link)
#   platform_entry     the image's entry point FxDriverEntry, to be linked with the driver's sources

get_filename_component(PLATFORM_ROOT "${CMAKE_CURRENT_LIST_DIR}/../platform" ABSOLUTE)

add_library(platform_headers INTERFACE)
target_include_directories(platform_headers SYSTEM INTERFACE "${PLATFORM_ROOT}/include")
target_compile_options(platform_headers INTERFACE -fshort-wchar -fsigned-char)
target_compile_features(platform_headers INTERFACE cxx_std_20)

file(GLOB platform_assertions CONFIGURE_DEPENDS "${PLATFORM_ROOT}/asserts/*.cpp")
add_library(platform_asserts OBJECT ${platform_assertions})
target_link_libraries(platform_asserts PRIVATE platform_headers)

add_library(platform_entry OBJECT "${PLATFORM_ROOT}/entry/framework_entry.cpp")
target_link_libraries(platform_entry PUBLIC platform_headers)
set_target_properties(platform_entry PROPERTIES POSITION_INDEPENDENT_CODE ON)
