find_package(Boost QUIET)
kiv_bench_peer(boost.cpp Boost::headers)
