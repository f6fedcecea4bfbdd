# report_assets.cpp: code and style of the page of "zotuning report", bundled from web/report by esbuild (Debian) with
# uPlot (npm; scripts/setup downloads it). Without one of them it is empty, and the command says what to install.
#
# Run as a script, with -DSCRIPT=, -DSTYLE= and -DOUTPUT=, it turns two files into C++; "" for none.
if(CMAKE_SCRIPT_MODE_FILE)
  foreach(name SCRIPT STYLE)
    set(${name}_text "")
    set(${name}_sha256 "")
    if(${name})
      file(SHA256 "${${name}}" ${name}_sha256)
      file(READ "${${name}}" ${name}_text)
    endif()
  endforeach()
  file(WRITE "${OUTPUT}" "// Made by cmake/report_page.cmake.\n\n#include \"workspace/report_page.h\"\n\n"
    "const zotuning::ReportAssets zotuning::kReportAssets = {\nR\"~~~~(${SCRIPT_text})~~~~\",\n"
    "R\"~~~~(${STYLE_text})~~~~\",\n\"${SCRIPT_sha256}\", \"${STYLE_sha256}\"};\n")
  return()
endif()

find_program(ZOTUNING_ESBUILD esbuild)
set(ZOTUNING_NODE_MODULES ${PROJECT_SOURCE_DIR}/out/web/node_modules CACHE PATH
  "The folder that holds the npm package uplot, for the page of reports")

set(zotuning_report_assets ${CMAKE_CURRENT_BINARY_DIR}/report_assets.cpp)
set(script "")
set(style "")
set(bundle_command)
set(bundle_sources)
if(ZOTUNING_ESBUILD AND EXISTS ${ZOTUNING_NODE_MODULES}/uplot/LICENSE)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/report.js)
  set(style ${CMAKE_CURRENT_BINARY_DIR}/report.css)
  file(GLOB bundle_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/web/report/*)
  # The licence of uPlot is a string in the script, so its comments can be removed.
  set(esbuild ${CMAKE_COMMAND} -E env NODE_PATH=${ZOTUNING_NODE_MODULES} ${ZOTUNING_ESBUILD} --bundle --minify
    --charset=ascii --legal-comments=none --log-level=warning --target=chrome110,firefox113,safari16.4 --loader:=text)
  set(bundle_command
    COMMAND ${esbuild} --format=iife --outfile=${script} ${PROJECT_SOURCE_DIR}/web/report/main.js
    COMMAND ${esbuild} --outfile=${style} ${PROJECT_SOURCE_DIR}/web/report/style.css)
elseif(PROJECT_IS_TOP_LEVEL)
  message(STATUS "The page of 'zotuning report' is left out: scripts/setup installs esbuild and uPlot")
endif()
add_custom_command(
  OUTPUT ${zotuning_report_assets}
  ${bundle_command}
  COMMAND ${CMAKE_COMMAND} -DSCRIPT=${script} -DSTYLE=${style} -DOUTPUT=${zotuning_report_assets}
    -P ${CMAKE_CURRENT_LIST_FILE}
  DEPENDS ${bundle_sources} ${CMAKE_CURRENT_LIST_FILE}
  COMMENT "Bundling the page of reports"
  VERBATIM)
