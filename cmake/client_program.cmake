# Builds the program's file from its entry point, its folders' libraries and its resources.
include(driver_files)
include(delayed_imports)

# Sets `out` to the four numbers that Windows requires of `version`, missing ones being 0.
function(version_numbers out version)
  if(NOT version MATCHES "^[0-9]+(\\.[0-9]+)?(\\.[0-9]+)?(\\.[0-9]+)?$")
    message(FATAL_ERROR "\"${version}\" is no version: one to four numbers with points between.")
  endif()
  string(REPLACE "." ";" numbers "${version}")
  foreach(number ${numbers})
    if(number GREATER 65535)
      message(FATAL_ERROR "The version ${version} holds a number above 65535.")
    endif()
  endforeach()
  list(APPEND numbers 0 0 0)
  list(SUBLIST numbers 0 4 numbers)
  set(${out} "${numbers}" PARENT_SCOPE)
endfunction()

# Sets `out` to `key` in lower case: an SHA-256 in hexadecimal digits, or empty.
function(signer_key out key)
  string(TOLOWER "${key}" lower)
  string(LENGTH "${lower}" length)
  if(NOT lower STREQUAL "" AND NOT (length EQUAL 64 AND lower MATCHES "^[0-9a-f]+$"))
    message(FATAL_ERROR "\"${key}\" is no SHA-256: 64 hexadecimal digits. That of a certificate's key: "
      "openssl x509 -in signer.pem -pubkey -noout | openssl pkey -pubin -outform der | sha256sum")
  endif()
  set(${out} "${lower}" PARENT_SCOPE)
endfunction()

# client_program(TARGET VERSION numbers [SIGNER sha256] FOLDER folder): builds FOLDER/Velmarine.Client.exe.
# It reports VERSION to the service, as its version resource does, and accepts updates signed by SIGNER only
# (from anybody if there is none). Windows only.
function(client_program target)
  cmake_parse_arguments(ARG "" "VERSION;SIGNER;FOLDER" "" ${ARGN})
  signer_key(signer "${ARG_SIGNER}")
  version_numbers(numbers "${ARG_VERSION}")
  list(JOIN numbers "," numbers_by_comma)
  list(JOIN numbers "." numbers_by_point)
  set(resources "${CMAKE_SOURCE_DIR}/resources")
  set(made "${CMAKE_CURRENT_BINARY_DIR}/${target}")
  configure_file("${resources}/velmarine.rc.in" "${made}/velmarine.rc" @ONLY)
  configure_file("${resources}/velmarine.manifest.in" "${made}/velmarine.manifest" @ONLY)

  file(GLOB page_parts CONFIGURE_DEPENDS
    "${CMAKE_SOURCE_DIR}/webui/*.in" "${CMAKE_SOURCE_DIR}/webui/style/*.css" "${CMAKE_SOURCE_DIR}/webui/script/*.js")
  add_custom_command(OUTPUT "${made}/app.html"
    COMMAND ${CMAKE_COMMAND} "-DOUT=${made}/app.html" -P "${CMAKE_SOURCE_DIR}/webui/join.cmake"
    DEPENDS "${CMAKE_SOURCE_DIR}/webui/join.cmake" "${CMAKE_SOURCE_DIR}/src/text/page_texts.cpp" ${page_parts} VERBATIM)

  # The driver files, the page, the icon. A library of its own, because the resource compiler rejects
  # the warning flags of the C++ files.
  driver_files(driver_folder)
  add_library(${target}_resources OBJECT "${made}/velmarine.rc" "${made}/app.html")
  target_include_directories(${target}_resources PRIVATE
    "${made}" "${driver_folder}" "${resources}")
  set_source_files_properties("${made}/velmarine.rc" PROPERTIES OBJECT_DEPENDS
    "${driver_folder}/WinDivert.dll;${driver_folder}/WinDivert64.sys;${made}/app.html;${resources}/velmarine.ico;${made}/velmarine.manifest")
  if(VELMARINE_DRIVER STREQUAL "lab")
    add_dependencies(${target}_resources lab_windivert)
  endif()

  add_executable(${target} WIN32 "${CMAKE_SOURCE_DIR}/src/shell/main.cpp")
  target_compile_definitions(${target} PRIVATE VELMARINE_VERSION=L"${ARG_VERSION}"
    VELMARINE_SIGNER_SHA256="${signer}")
  target_link_libraries(${target} PRIVATE shell ${target}_resources)
  target_link_options(${target} PRIVATE -municode)
  if(NOT VELMARINE_TESTS)
    target_compile_options(${target} PRIVATE -g1)
  endif()
  delayed_imports(delayed_folder)
  target_link_directories(${target} BEFORE PRIVATE "${delayed_folder}")
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME Velmarine.Client RUNTIME_OUTPUT_DIRECTORY "${ARG_FOLDER}")
endfunction()
