# The sources of murv's subcommands, without its main: the program links
# them, and so does the fuzz target of the CSV import.
set(MURV_CORE_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/common.cpp
    ${CMAKE_CURRENT_LIST_DIR}/format.cpp
    ${CMAKE_CURRENT_LIST_DIR}/table.cpp
    ${CMAKE_CURRENT_LIST_DIR}/freq.cpp
    ${CMAKE_CURRENT_LIST_DIR}/stats.cpp
    ${CMAKE_CURRENT_LIST_DIR}/describe.cpp
    ${CMAKE_CURRENT_LIST_DIR}/cat.cpp
    ${CMAKE_CURRENT_LIST_DIR}/import.cpp
    ${CMAKE_CURRENT_LIST_DIR}/convert.cpp)
