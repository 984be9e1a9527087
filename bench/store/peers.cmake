find_package(absl QUIET)
kiv_bench_peer(btree.cpp absl::btree)

pkg_check_modules(lmdb QUIET IMPORTED_TARGET lmdb)
pkg_check_modules(sqlite3 QUIET IMPORTED_TARGET sqlite3)
pkg_check_modules(rocksdb QUIET IMPORTED_TARGET rocksdb)
kiv_bench_peer(lmdb.cpp PkgConfig::lmdb)
kiv_bench_peer(sqlite.cpp PkgConfig::sqlite3)
kiv_bench_peer(rocksdb.cpp PkgConfig::rocksdb)
