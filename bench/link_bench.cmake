# The peer of the launch-link benchmark: libcurl's URL API building the same URL.
find_package(CURL REQUIRED)
target_link_libraries(link_bench PRIVATE CURL::libcurl)
