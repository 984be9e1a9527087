pkg_check_modules(icu QUIET IMPORTED_TARGET icu-uc)
kiv_bench_peer(icu.cpp PkgConfig::icu)
find_package(simdjson QUIET)
kiv_bench_peer(simdjson.cpp simdjson::simdjson)
