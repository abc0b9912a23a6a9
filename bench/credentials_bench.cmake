# The peer of this benchmark calls nettle's Blowfish directly.
target_link_libraries(${name} PRIVATE PkgConfig::NETTLE)
