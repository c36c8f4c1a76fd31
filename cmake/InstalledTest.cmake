# SPDX-License-Identifier: Apache-2.0
# Installs the build into an empty prefix, moves that prefix, and uses what stands there as other people would: the CMake
# package, the pkg-config files, the library by its name, the program. Run with -P; the variables come from examples/CMakeLists.txt.

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE OUTPUT ERROR_VARIABLE OUTPUT RESULT_VARIABLE RESULT)
  if(NOT RESULT EQUAL 0)
    message(FATAL_ERROR "${ARGN}\nended with ${RESULT}:\n${OUTPUT}")
  endif()
  set(OUTPUT "${OUTPUT}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/first)
file(RENAME ${WORK_DIR}/first ${WORK_DIR}/prefix)
set(PREFIX ${WORK_DIR}/prefix)

# Whoever owns a folder of the build must have no say in what is installed.
file(GLOB_RECURSE INSTALLED ${PREFIX}/*)
foreach(FILE ${INSTALLED})
  file(STRINGS ${FILE} FOUND REGEX "${SOURCE_DIR}|${BUILD_DIR}" LIMIT_COUNT 1)
  if(FOUND)
    message(FATAL_ERROR "${FILE} names the build: ${FOUND}")
  endif()
endforeach()

# Each link of an installed document leads somewhere.
file(GLOB_RECURSE DOCUMENTS ${PREFIX}/*.md)
foreach(FILE ${DOCUMENTS})
  get_filename_component(FOLDER ${FILE} DIRECTORY)
  file(READ ${FILE} TEXT)
  string(REPLACE "](" "<link>" TEXT "${TEXT}")
  string(REGEX REPLACE "[][]" "" TEXT "${TEXT}")
  string(REGEX MATCHALL "<link>[^)#]+" LINKS "${TEXT}")
  foreach(LINK ${LINKS})
    string(SUBSTRING "${LINK}" 6 -1 LINK)
    if(NOT LINK MATCHES "^https?:" AND NOT EXISTS "${FOLDER}/${LINK}")
      message(FATAL_ERROR "${FILE}: the link ${LINK} leads nowhere")
    endif()
  endforeach()
endforeach()

# Outside the folders of the system, the dynamic linker must be told where libraries are.
file(GLOB_RECURSE LIBRARY ${PREFIX}/*/libKFAFunctionality.so)
get_filename_component(LIBRARY_DIR ${LIBRARY} DIRECTORY)
set(ENV{LD_LIBRARY_PATH} ${LIBRARY_DIR})

# Builds a folder of examples against the prefix, runs its program with the arguments, and compares what it prints.
function(run_example FOLDER PROGRAM)
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/${FOLDER} -B ${WORK_DIR}/${FOLDER} -G Ninja
      -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
      -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/${FOLDER})
  run(${WORK_DIR}/${FOLDER}/${PROGRAM} ${ARGN})
  file(READ ${SOURCE_DIR}/examples/${FOLDER}/${PROGRAM}.expected EXPECTED)
  if(NOT OUTPUT STREQUAL EXPECTED)
    message(FATAL_ERROR "${PROGRAM} printed:\n${OUTPUT}instead of:\n${EXPECTED}")
  endif()
endfunction()

run_example(embed agent ${SOURCE_DIR}/examples/node/conf)
run_example(managers managers)
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/load -B ${WORK_DIR}/load -G Ninja -DCMAKE_PREFIX_PATH=${PREFIX}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/load)

run(${WORK_DIR}/embed/first ${SOURCE_DIR}/examples/node/conf/101.conf)
if(NOT OUTPUT STREQUAL "starts with the node: yes\n")
  message(FATAL_ERROR "first printed: ${OUTPUT}")
endif()

# What the page shows is what was built.
file(READ ${SOURCE_DIR}/docs/embedding.md PAGE)
file(READ ${SOURCE_DIR}/examples/embed/first.cpp CODE)
string(FIND "${CODE}" "#include" AT)
string(SUBSTRING "${CODE}" ${AT} -1 CODE)
string(FIND "${PAGE}" "${CODE}" AT)
if(AT EQUAL -1)
  message(FATAL_ERROR "docs/embedding.md does not show examples/embed/first.cpp as it is")
endif()

run(${WORK_DIR}/embed/loader)
foreach(TAG venv_configType envType net_vethType ct_zloop_disk "environment type kelvarium: registered" "unloaded 100 times")
  if(NOT OUTPUT MATCHES "${TAG}")
    message(FATAL_ERROR "loader did not show ${TAG}:\n${OUTPUT}")
  endif()
endforeach()

run(${PREFIX}/bin/kfactl --format json raw get ${SOURCE_DIR}/examples/node/conf/101.conf)

if(PYTHON)
  run(${CMAKE_COMMAND} -E env PYTHONPATH=${PREFIX}/${PYTHON_DIR} PYTHONDONTWRITEBYTECODE=1 ${PYTHON} -c
      "import kfa\nprint(kfa.read_config('${SOURCE_DIR}/examples/node/conf/101.conf').hostname, len(kfa.formulas()) > 9)")
  if(NOT OUTPUT STREQUAL "www.example.com True\n")
    message(FATAL_ERROR "the Python module printed: ${OUTPUT}")
  endif()
endif()

file(GLOB_RECURSE PC_FILE ${PREFIX}/*/KFAFunctionality.pc)
get_filename_component(PC_DIR ${PC_FILE} DIRECTORY)
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${PC_DIR} pkg-config --define-prefix --cflags --libs KFAFunctionality)
separate_arguments(PC_FLAGS UNIX_COMMAND "${OUTPUT}")
separate_arguments(FLAGS UNIX_COMMAND "${CXX_FLAGS}")
run(${CXX} -std=c++20 ${FLAGS} ${SOURCE_DIR}/examples/embed/agent.cpp -o ${WORK_DIR}/agent ${PC_FLAGS})
file(REMOVE_RECURSE ${WORK_DIR})
