# Fails unless the add-on's dynamic symbol table defines exactly the three
# entry functions a host looks up.
execute_process(COMMAND nm -D --defined-only ${ADDON} OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm failed on ${ADDON}")
endif()
string(REGEX MATCHALL "[^ \n]+\n" names "${symbols}")
list(TRANSFORM names STRIP)
list(SORT names)
# Sanitizer builds add their own runtime hooks; only our symbols are judged.
list(FILTER names EXCLUDE REGEX "^__(asan|ubsan|sanitizer|lsan)")
set(expected addonShutdown addonStartup getKnxStackApiVersion)
if(NOT names STREQUAL expected)
  message(FATAL_ERROR "exported: ${names}; expected: ${expected}")
endif()
message(STATUS "exported: ${names}")
