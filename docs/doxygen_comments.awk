#!/usr/bin/awk -f
# SPDX-License-Identifier: Apache-2.0
# Makes doxygen's comments of a header's ordinary ones: those at its head tell about the file, those
# behind a member about the member, all others about what follows.
FNR == 1 && /SPDX-License-Identifier/ { next }
FNR == 2 && /^\/\// { print "/// \\file" }
FNR == 2 && /^\/\*/ { sub(/\/\*/, "/** \\file\n\n  ") }
/^[[:space:]]*\/\// { sub(/\/\//, "///"); print; next }
/[;,{(].* \/\/ / { sub(/\/\/ /, "///< ") }
/^[[:space:]]*\/\* / { sub(/\/\* /, "/** ") }
/[;,].* \/\* / { sub(/\/\* /, "/**< ") }
{ print }
