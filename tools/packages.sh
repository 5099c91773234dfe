# Installs what the named Debian packages lack. Sourced by ./run, ./package, ./test and bench/run.

build_packages="clang-19 lld-19 llvm-19 libclang-rt-19-dev cmake ninja-build libyaml-cpp-dev libfmt-dev libicu-dev
    nlohmann-json3-dev libcli11-dev"
run_packages="$build_packages qemu-user"
bench_packages="$build_packages libbenchmark-dev valgrind python3"
package_packages="$build_packages openssl osslsigncode python3"
test_packages="$bench_packages libgtest-dev libgmock-dev clang-format-19 clang-tidy-19
    python3-jsonschema python3-yaml $run_packages $package_packages"

need_packages() {
    local missing=()
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null)" != "ii " ]; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    echo "Installing: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
