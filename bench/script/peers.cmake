# sol2 comes from tools/fetch-peers.
find_package(sol2 QUIET)
pkg_check_modules(lua QUIET IMPORTED_TARGET lua5.4)
kiv_bench_peer(sol2.cpp sol2::sol2 PkgConfig::lua)
