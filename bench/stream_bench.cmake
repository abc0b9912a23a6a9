# The peer of this benchmark is msgpack-cxx (header-only); the documents are
# parsed with nlohmann-json (header-only).
find_package(msgpackc-cxx QUIET)
if(TARGET msgpackc-cxx)
  target_link_libraries(${name} PRIVATE msgpackc-cxx)
endif()
target_compile_definitions(${name} PRIVATE MSGPACK_NO_BOOST)
