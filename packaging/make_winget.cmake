# Writes winget's manifests of a package: where it is downloaded from, its hash, what is in it.
# Usage: cmake -DZIP=FILE -DVERSION=V -DDOWNLOAD_URL=FOLDER_URL -DOUT=FOLDER -P make_winget.cmake
# Writes the manifests to OUT/VERSION: winget requires a folder named after the version.
if(NOT DOWNLOAD_URL MATCHES "^https?://.+")
  message(FATAL_ERROR "VELMARINE_DOWNLOAD_URL is \"${DOWNLOAD_URL}\"; winget takes http and https.")
endif()
string(REGEX REPLACE "/+$" "" folder_url "${DOWNLOAD_URL}")
get_filename_component(FOLDER "${ZIP}" NAME_WLE)
set(URL "${folder_url}/${FOLDER}.zip")
file(SHA256 "${ZIP}" SHA256)
string(TOUPPER "${SHA256}" SHA256)
file(GLOB templates "${CMAKE_CURRENT_LIST_DIR}/winget/*.yaml.in")
foreach(template IN LISTS templates)
  get_filename_component(name "${template}" NAME_WLE)
  configure_file("${template}" "${OUT}/${VERSION}/${name}" @ONLY)
endforeach()
