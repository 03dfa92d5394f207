# Fails unless README contains the whole of EXAMPLE.
file(READ "${README}" readme)
file(READ "${EXAMPLE}" example)
string(FIND "${readme}" "```cpp\n${example}```" place)
if(place EQUAL -1)
    message(FATAL_ERROR "${README} does not quote ${EXAMPLE} as it is")
endif()
