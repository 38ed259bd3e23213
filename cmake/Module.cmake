# One static library per source folder. Sources are collected from the folder tree so that a new
# file needs no edit here; headers are included as "core/...", "media/..." from src/.
function(tavelquiston_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

function(tavelquiston_module name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS})
  tavelquiston_warnings(${name})
endfunction()

# A folder that makes a program: everything but main.cpp is a library that tests link to.
function(tavelquiston_program name program)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  list(REMOVE_ITEM sources ${CMAKE_CURRENT_SOURCE_DIR}/main.cpp)
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS})
  tavelquiston_warnings(${name})
  add_executable(${program} main.cpp)
  target_link_libraries(${program} PRIVATE ${name})
  tavelquiston_warnings(${program})
endfunction()
