# cmake -P script: writes OUT as the bundle MAIN with the entries of each of
# FRAGMENTS (a ;-list of files holding entries only, no root table) inserted
# before MAIN's closing brace. A host's own catalogue is the library's plus
# its messages.
file(READ ${MAIN} text)
string(FIND "${text}" "}" last REVERSE)
string(SUBSTRING "${text}" 0 ${last} head)
set(body "")
foreach(f IN LISTS FRAGMENTS)
  file(READ ${f} part)
  string(APPEND body "\n    // From ${f}\n${part}\n")
endforeach()
file(WRITE ${OUT}.tmp "${head}${body}}\n")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUT}.tmp)
