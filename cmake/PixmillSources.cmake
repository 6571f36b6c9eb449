# Every source unit of the library, by folder.
set(PIXMILL_SOURCES
  platform/Platform.cpp
  logging/Logger.cpp
  logging/LogRetention.cpp
  logging/Trace.cpp
  framework/Json.cpp
  framework/Param.cpp
  framework/Pin.cpp
  framework/Filter.cpp
  framework/FilterRegistry.cpp
  api/Startup.cpp
  api/FilterInfo.cpp
  api/Extensions.cpp
)
list(TRANSFORM PIXMILL_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)
