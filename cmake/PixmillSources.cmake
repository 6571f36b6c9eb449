# Every source unit of the library: each .cpp file in the library's folders.
# A new filter or inspection joins the build by being added to its folder.
file(GLOB_RECURSE PIXMILL_SOURCES CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/platform/*.cpp
  ${PROJECT_SOURCE_DIR}/logging/*.cpp
  ${PROJECT_SOURCE_DIR}/framework/*.cpp
  ${PROJECT_SOURCE_DIR}/recipe/*.cpp
  ${PROJECT_SOURCE_DIR}/Filters/*.cpp
  ${PROJECT_SOURCE_DIR}/api/*.cpp
  ${PROJECT_SOURCE_DIR}/inspect/*.cpp
  ${PROJECT_SOURCE_DIR}/enhance/*.cpp
)
list(SORT PIXMILL_SOURCES)
