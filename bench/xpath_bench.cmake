# The peer of this benchmark is pugixml's XPath over the same tree as XML.
find_package(pugixml REQUIRED)
target_link_libraries(${name} PRIVATE pugixml::pugixml)
