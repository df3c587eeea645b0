# Links a program with its own copies of the C++ libraries. Binding to shared ones, name by name, takes a quarter
# of the time of a short command. What is no archive here, or was not tried, is linked as usual.
function(varo_without_shared_cpp target)
  find_library(VARO_BOOST_JSON_ARCHIVE libboost_json.a)
  find_library(VARO_BOOST_CONTAINER_ARCHIVE libboost_container.a)
  set(archives ${VARO_BOOST_JSON_ARCHIVE} ${VARO_BOOST_CONTAINER_ARCHIVE})
  # One shared C++ library needs the compiler's: it is all of them or none.
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR VARO_SANITIZE OR archives MATCHES "NOTFOUND"
     OR NOT fmt_VERSION VERSION_LESS 10)
    return()
  endif()
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/FmtFunctions.cpp)
  target_link_libraries(${target} PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${VARO_BOOST_JSON_ARCHIVE},${VARO_BOOST_CONTAINER_ARCHIVE}>")
  target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc LINKER:--as-needed)
endfunction()
