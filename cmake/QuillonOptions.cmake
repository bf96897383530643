# Compiler options shared by every Quillon target.

add_library(quillon_options INTERFACE)
target_compile_options(quillon_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow
    -fstack-protector-strong -fstack-clash-protection)
target_include_directories(quillon_options INTERFACE ${PROJECT_SOURCE_DIR})
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
target_link_options(quillon_options INTERFACE -pie LINKER:-z,relro,-z,now)
target_compile_definitions(quillon_options INTERFACE _GLIBCXX_ASSERTIONS)

if(DEFINED ENV{CI} AND NOT "$ENV{CI}" STREQUAL "" AND NOT "$ENV{CI}" STREQUAL "false")
    target_compile_options(quillon_options INTERFACE -Werror)
endif()

# Sanitizers (and, in fuzz builds, coverage) also go into the third-party code we compile ourselves.
add_library(quillon_instrument INTERFACE)
target_link_libraries(quillon_options INTERFACE quillon_instrument)
if(QUILLON_SANITIZE)
    target_compile_options(quillon_instrument INTERFACE -fsanitize=${QUILLON_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(quillon_instrument INTERFACE -fsanitize=${QUILLON_SANITIZE})
else()
    # Fortify needs optimisation and fights the sanitizers' own interceptors.
    target_compile_options(quillon_options INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>)
endif()

# Release-like builds drop core dumps at start; Debug keeps them for developers.
target_compile_definitions(quillon_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:QUILLON_HARDENED=1>)

# Qt-free targets also get the conversion warnings (Qt's headers are too noisy for them).
add_library(quillon_strict INTERFACE)
target_link_libraries(quillon_strict INTERFACE quillon_options)
target_compile_options(quillon_strict INTERFACE -Wconversion -Wsign-conversion)

# Qt targets convert at the boundary explicitly.
add_library(quillon_qt_options INTERFACE)
target_link_libraries(quillon_qt_options INTERFACE quillon_options)
target_compile_definitions(quillon_qt_options INTERFACE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS)

# One static library per layer; sources are the layer folder's .cpp files. A layer with no sources yet is
# an interface target with the same usage, so the tree configures while layers are being filled in.
function(quillon_layer_library name dir)
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.cpp)
    file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.h)
    if(sources)
        add_library(${name} STATIC ${sources} ${headers})
    else()
        add_library(${name} INTERFACE)
    endif()
endfunction()

# PUBLIC and PRIVATE usage, whichever kind of target quillon_layer_library made.
function(quillon_layer_link name)
    cmake_parse_arguments(ARG "" "" "PUBLIC;PRIVATE" ${ARGN})
    get_target_property(kind ${name} TYPE)
    if(kind STREQUAL "INTERFACE_LIBRARY")
        target_link_libraries(${name} INTERFACE ${ARG_PUBLIC})
    else()
        target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
    endif()
endfunction()
