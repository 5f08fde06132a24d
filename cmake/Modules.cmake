# One static library per subsystem folder, so that layering is enforced by
# the link: a folder sees only the libraries it names as dependencies.
function(vessord_module name)
  cmake_parse_arguments(M "" "" "DEPS" ${ARGN})
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER srcs EXCLUDE REGEX "/main\\.cpp$")
  if(srcs)
    add_library(vessord_${name} STATIC ${srcs})
    target_include_directories(vessord_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vessord_${name} PUBLIC ${M_DEPS} Threads::Threads)
  else()
    add_library(vessord_${name} INTERFACE)
    target_include_directories(vessord_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(vessord_${name} INTERFACE ${M_DEPS} Threads::Threads)
  endif()
endfunction()

# Every tests/<folder>/<name>_test.cpp becomes its own executable whose cases
# ctest runs one by one (ctest -j spreads them). Files named *_mt_test.cpp
# exercise threads and carry the label "threading" (run under TSan in CI).
function(vessord_tests folder)
  cmake_parse_arguments(T "" "EXCLUDE" "DEPS;NEEDS" ${ARGN})
  file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  if(T_EXCLUDE)
    list(FILTER tests EXCLUDE REGEX "${T_EXCLUDE}")
  endif()
  foreach(src ${tests})
    get_filename_component(base ${src} NAME_WE)
    set(exe ${folder}_${base})
    add_executable(${exe} ${src})
    target_link_libraries(${exe} PRIVATE ${T_DEPS} vessord_testsupport GTest::gtest GTest::gtest_main)
    if(T_NEEDS)
      add_dependencies(${exe} ${T_NEEDS})
    endif()
    # A list does not survive the way into the discovered tests' properties,
    # so the folder's label comes from the directory and each test carries
    # at most one label of its own.
    set(labels ${folder})
    if(base MATCHES "_mt_test$")
      set(labels threading)
    endif()
    # Sound-output tests start music daemons on the appliance's port range
    # (12350..12650), which each test process searches from its start: two
    # such tests at once could both find the same port free.
    set(lock "")
    if(base MATCHES "^alsa")
      set(lock RESOURCE_LOCK mpd_ports)
    endif()
    gtest_discover_tests(${exe} DISCOVERY_TIMEOUT 30
      PROPERTIES LABELS "${labels}" TIMEOUT 120 ${lock})
  endforeach()
  set_property(DIRECTORY APPEND PROPERTY LABELS ${folder})
endfunction()
