# The library exports exactly the module's entry points.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+(\n|$)" names "${symbols}")
list(TRANSFORM names STRIP)
list(SORT names)
set(expected DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer KVMPDCreateInstance)
if(NOT names STREQUAL expected)
    message(FATAL_ERROR "exported: ${names}\nexpected: ${expected}")
endif()
