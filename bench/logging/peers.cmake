find_package(spdlog QUIET)
kiv_bench_peer(spdlog.cpp spdlog::spdlog)
