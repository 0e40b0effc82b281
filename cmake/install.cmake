# Installation: the header, the library and the virtual camera with its
# header, a CMake package (find_package(Quorin) gives Quorin::quorin and
# Quorin::vcam), pkg-config files and, on Linux, the Python binding. The
# Windows build also packs the DLLs, their import libraries and the headers
# into a zip.
include(CMakePackageConfigHelpers)

set_target_properties(quorin_vcam PROPERTIES EXPORT_NAME vcam)
install(TARGETS quorin quorin_vcam EXPORT QuorinTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${CMAKE_SOURCE_DIR}/include/quorin/quorin.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorin)
install(FILES ${CMAKE_SOURCE_DIR}/vcam/include/vcam/vcam.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vcam)

set(QUORIN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Quorin)
install(EXPORT QuorinTargets NAMESPACE Quorin:: DESTINATION ${QUORIN_CMAKE_DIR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/QuorinConfig.cmake.in
  ${CMAKE_BINARY_DIR}/QuorinConfig.cmake INSTALL_DESTINATION ${QUORIN_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/QuorinConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/QuorinConfig.cmake ${CMAKE_BINARY_DIR}/QuorinConfigVersion.cmake
  DESTINATION ${QUORIN_CMAKE_DIR})

# The .pc files name their prefix relative to their own folder, so that an
# installed tree can move.
file(RELATIVE_PATH QUORIN_PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" QUORIN_PC_UP "${QUORIN_PC_UP}")
foreach(pc quorin quorin-vcam)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/${pc}.pc.in ${CMAKE_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

if(NOT WIN32)
  # Debian's python3 reads <prefix>/lib/python3/dist-packages for /usr;
  # other prefixes add the folder to PYTHONPATH.
  set(QUORIN_PYTHON_DIR lib/python3/dist-packages CACHE STRING "Install folder of the Python binding, below the prefix")
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/python/quorin DESTINATION ${QUORIN_PYTHON_DIR}
    FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
endif()

if(WIN32)
  set(QUORIN_ZIP_NAME quorin-${PROJECT_VERSION}-win64)
  set(QUORIN_ZIP ${CMAKE_BINARY_DIR}/${QUORIN_ZIP_NAME}.zip)
  set(stage ${CMAKE_BINARY_DIR}/zip/${QUORIN_ZIP_NAME})
  add_custom_command(OUTPUT ${QUORIN_ZIP}
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${stage}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${stage}/bin ${stage}/lib ${stage}/include/quorin ${stage}/include/vcam
    COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:quorin> $<TARGET_FILE:quorin_vcam> ${stage}/bin
    COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_LINKER_FILE:quorin> $<TARGET_LINKER_FILE:quorin_vcam> ${stage}/lib
    COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/include/quorin/quorin.h ${stage}/include/quorin
    COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/vcam/include/vcam/vcam.h ${stage}/include/vcam
    COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/examples/host_example.c ${stage}
    COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/cmake/zip-readme.txt ${stage}/README.txt
    COMMAND ${CMAKE_COMMAND} -E chdir ${CMAKE_BINARY_DIR}/zip
            ${CMAKE_COMMAND} -E tar cf ${QUORIN_ZIP} --format=zip ${QUORIN_ZIP_NAME}
    DEPENDS quorin quorin_vcam ${CMAKE_SOURCE_DIR}/include/quorin/quorin.h
            ${CMAKE_SOURCE_DIR}/vcam/include/vcam/vcam.h ${CMAKE_SOURCE_DIR}/examples/host_example.c
            ${CMAKE_SOURCE_DIR}/cmake/zip-readme.txt
    COMMENT "Packing ${QUORIN_ZIP_NAME}.zip")
  add_custom_target(quorin_zip ALL DEPENDS ${QUORIN_ZIP})
endif()
