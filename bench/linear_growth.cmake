# The peer reads the same files; nlohmann-json is header-only.
find_package(nlohmann_json REQUIRED)
target_link_libraries(linear_growth PRIVATE nlohmann_json::nlohmann_json)
