# The Debian packages that each job needs; sourced by the scripts.
build_packages=(g++ cmake ninja-build zlib1g-dev libfmt-dev libcli11-dev
                nlohmann-json3-dev scdoc)
test_packages=("${build_packages[@]}" libgtest-dev libgmock-dev librapidcheck-dev)
check_packages=(git python3-minimal clang-format-14 clang-tidy-14 groff-base)
fuzz_packages=("${build_packages[@]}" clang-14 libclang-rt-14-dev)
bench_packages=("${build_packages[@]}" libbenchmark-dev liblmdb-dev liblz4-dev libsqlite3-dev)
package_packages=("${build_packages[@]}" dpkg-dev file)
package_check_packages=(lintian man-db)
