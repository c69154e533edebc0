# Run by CPack after it has installed the package's files into its staging
# directory: strips the helper as Debian's dh_strip does (symbols, and the
# .comment and .note sections lintian calls unneeded).
find_program(KVO_STRIP strip REQUIRED)
file(GLOB_RECURSE kvo_binaries "${CPACK_TEMPORARY_DIRECTORY}/*/bin/kem-vision-ocr")
if(NOT kvo_binaries)
  message(FATAL_ERROR "strip.cmake: no bin/kem-vision-ocr below ${CPACK_TEMPORARY_DIRECTORY}")
endif()
foreach(binary IN LISTS kvo_binaries)
  execute_process(COMMAND ${KVO_STRIP} --remove-section=.comment --remove-section=.note "${binary}"
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
