# Builds a preset of CMakePresets.json in its folder below build/. Sourced; `root` is the project's folder.

# Configures the folder unless that is done, then builds.
build_preset() { # preset, cmake's options for the build
    local preset=$1 folder="$root/build/$1"
    shift
    if [ ! -f "$folder/build.ninja" ]; then
        cmake --preset "$preset" -S "$root" >/dev/null
    fi
    NINJA_STATUS='[%f/%t] ' cmake --build "$folder" "$@"
}
