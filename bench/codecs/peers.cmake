pkg_check_modules(openssl QUIET IMPORTED_TARGET libcrypto)
kiv_bench_peer(openssl.cpp PkgConfig::openssl)
pkg_check_modules(libsodium QUIET IMPORTED_TARGET libsodium)
kiv_bench_peer(libsodium.cpp PkgConfig::libsodium)
