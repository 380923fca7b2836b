# SPDX-License-Identifier: Apache-2.0
# cmake -DSOURCE=DIR -DOUT=FILE [-DREVISION=TEXT] -P flow_revision.cmake: a header with the revision
# of the sources, "unknown" where they are neither a release, which has it in a file, nor a clone. The
# header is left alone when nothing changed.
if(NOT REVISION AND EXISTS ${SOURCE}/REVISION)
  file(STRINGS ${SOURCE}/REVISION REVISION LIMIT_COUNT 1)
endif()
if(NOT REVISION)
  execute_process(COMMAND git -C ${SOURCE} describe --always --dirty --abbrev=12 --exclude=*
                  OUTPUT_VARIABLE REVISION OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT REVISION)
  set(REVISION unknown)
endif()
file(CONFIGURE OUTPUT ${OUT} CONTENT "#define FLOW_REVISION \"@REVISION@\"\n" @ONLY)
