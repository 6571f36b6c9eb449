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
  framework/ImageFiles.cpp
  recipe/Recipe.cpp
  recipe/RecipeProcess.cpp
  Filters/SourceFilter.cpp
  Filters/LoggerPathFilter.cpp
  Filters/DrawCircleFilter.cpp
  api/Startup.cpp
  api/FilterInfo.cpp
  api/Extensions.cpp
  api/ImageRecords.cpp
  api/ImageBuffer.cpp
  api/Execute.cpp
  api/SmallExports.cpp
)
list(TRANSFORM PIXMILL_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/)
