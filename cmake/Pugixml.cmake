# pugixml in compact mode: nodes of 12 bytes instead of 64 make the decrypted document about five times
# smaller, and opening faster, since most of the cost of a large open is touching fresh memory. Debian's
# libpugixml is built in the default mode, so scripts/install-deps fetches Debian's source package of the
# same version into .deps/ and it is compiled here. Without that source (a macOS build, say), the system
# library is used and documents take their default, larger footprint.
set(QUILLON_PUGIXML_SOURCE "" CACHE PATH "pugixml source folder (with pugixml.cpp) to build in compact mode")
if(NOT QUILLON_PUGIXML_SOURCE)
    file(GLOB found LIST_DIRECTORIES false ${PROJECT_SOURCE_DIR}/.deps/pugixml-*/src/pugixml.cpp)
    if(found)
        list(GET found 0 first)
        get_filename_component(QUILLON_PUGIXML_SOURCE ${first} DIRECTORY)
    endif()
endif()

if(QUILLON_PUGIXML_SOURCE)
    if(NOT EXISTS ${QUILLON_PUGIXML_SOURCE}/pugixml.cpp)
        message(FATAL_ERROR "QUILLON_PUGIXML_SOURCE=${QUILLON_PUGIXML_SOURCE} holds no pugixml.cpp")
    endif()
    add_library(quillon_pugixml STATIC ${QUILLON_PUGIXML_SOURCE}/pugixml.cpp)
    target_include_directories(quillon_pugixml SYSTEM BEFORE PUBLIC ${QUILLON_PUGIXML_SOURCE})
    # Public: the header's noexcept clauses depend on it, so every user must agree.
    target_compile_definitions(quillon_pugixml PUBLIC PUGIXML_COMPACT)
    target_link_libraries(quillon_pugixml PRIVATE quillon_instrument)
    add_library(pugixml::pugixml ALIAS quillon_pugixml)
    message(STATUS "pugixml: compact mode, from ${QUILLON_PUGIXML_SOURCE}")
else()
    if(DEFINED ENV{CI} AND NOT "$ENV{CI}" STREQUAL "" AND NOT "$ENV{CI}" STREQUAL "false")
        message(FATAL_ERROR "CI builds pugixml in compact mode: run scripts/install-deps to fetch its source")
    endif()
    find_package(pugixml REQUIRED)
    message(STATUS "pugixml: the system library (default mode; documents take about five times the memory)")
endif()
