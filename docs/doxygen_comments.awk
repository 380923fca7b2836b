#!/usr/bin/awk -f
# Makes doxygen's comments of a header's ordinary ones: those at its head tell about the file, those
# behind a member about the member, all others about what follows.
FNR == 1 && /^\/\// { print "/// \\file" }
FNR == 1 && /^\/\*/ { sub(/\/\*/, "/** \\file\n\n  ") }
/^[[:space:]]*\/\// { sub(/\/\//, "///"); print; next }
/[;,{(].* \/\/ / { sub(/\/\/ /, "///< ") }
/^[[:space:]]*\/\* / { sub(/\/\* /, "/** ") }
/[;,].* \/\* / { sub(/\/\* /, "/**< ") }
{ print }
