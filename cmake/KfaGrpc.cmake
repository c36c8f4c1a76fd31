# SPDX-License-Identifier: Apache-2.0
# Sources that are made from the descriptions of gRPC services.

# kf_grpc_sources(TARGET FILE.proto...)
# Adds what the compilers make of each file to the target, as <TARGET/FILE.pb.h> and <TARGET/FILE.grpc.pb.h>, and links
# gRPC. A process may hold each name of a file once: protobuf knows this one as TARGET/FILE.proto. The made code is not
# ours: it is compiled without our warnings. The target kf_made makes all such sources, for tools that read sources
# without a build.
add_custom_target(kf_made)
function(kf_grpc_sources TARGET)
  set(FOLDER ${CMAKE_CURRENT_BINARY_DIR}/made)
  foreach(PROTO ${ARGN})
    get_filename_component(NAME ${PROTO} NAME_WE)
    set(MADE)
    foreach(SUFFIX pb.cc pb.h grpc.pb.cc grpc.pb.h)
      list(APPEND MADE ${FOLDER}/${TARGET}/${NAME}.${SUFFIX})
    endforeach()
    add_custom_command(OUTPUT ${MADE}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${FOLDER}/${TARGET}
      COMMAND protobuf::protoc --proto_path=${TARGET}=${CMAKE_CURRENT_SOURCE_DIR} --cpp_out=${FOLDER}
              --grpc_out=${FOLDER} --plugin=protoc-gen-grpc=$<TARGET_FILE:gRPC::grpc_cpp_plugin>
              ${CMAKE_CURRENT_SOURCE_DIR}/${PROTO}
      DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${PROTO} VERBATIM)
    set_source_files_properties(${MADE} PROPERTIES COMPILE_OPTIONS -w)
    target_sources(${TARGET} PRIVATE ${MADE})
    add_custom_target(${TARGET}_${NAME}_made DEPENDS ${MADE})
    add_dependencies(kf_made ${TARGET}_${NAME}_made)
    add_dependencies(${TARGET} ${TARGET}_${NAME}_made)
  endforeach()
  target_include_directories(${TARGET} SYSTEM PRIVATE ${FOLDER})
  target_link_libraries(${TARGET} PRIVATE gRPC::grpc++ gRPC::grpc++_reflection protobuf::libprotobuf)
endfunction()
