# Lists the Windows zip and checks that it holds what a host needs.
execute_process(COMMAND ${CMAKE_COMMAND} -E tar tf ${ZIP} OUTPUT_VARIABLE listing RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cannot list ${ZIP}")
endif()
foreach(f bin/QUORIN.dll bin/quorin_vcam.dll lib/QUORIN.lib lib/quorin_vcam.lib
          include/quorin/quorin.h include/vcam/vcam.h)
  string(FIND "${listing}" "${NAME}/${f}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${f} missing from ${ZIP}:\n${listing}")
  endif()
endforeach()
