# Peers of the JSON benchmark, parsed from the same bytes in the same run.
find_package(RapidJSON REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(simdjson REQUIRED)
target_link_libraries(json_bench PRIVATE nlohmann_json::nlohmann_json simdjson::simdjson)
target_include_directories(json_bench PRIVATE ${RapidJSON_INCLUDE_DIRS} ${RAPIDJSON_INCLUDE_DIRS})
