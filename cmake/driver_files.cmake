# The two files of the packet driver embedded in the program: the lab's stand-in, or the published release
# files, which are never committed and whose hashes must match.

# SHA-256 of the x64 files of the supported releases.
set(WINDIVERT_RELEASES 2.2.2-A 2.2.0-A)
set(WINDIVERT_2.2.2-A_DLL c1e060ee19444a259b2162f8af0f3fe8c4428a1c6f694dce20de194ac8d7d9a2)
set(WINDIVERT_2.2.2-A_SYS 8da085332782708d8767bcace5327a6ec7283c17cfb85e40b03cd2323a90ddc2)
set(WINDIVERT_2.2.0-A_DLL 6110bfa44667405179c3e15e12af1b62037e447ed59b054b19042032995e6c7e)
set(WINDIVERT_2.2.0-A_SYS 5c3e7bbb06ebb134bed7b1231fdf3139a2052cbe5e8c8418e54237933b51bb4e)

# Sets `out` to the folder that holds WinDivert.dll and WinDivert64.sys, and `out`_release to the name of their
# release, "lab" for the stand-in.
function(driver_files out)
  if(VELMARINE_DRIVER STREQUAL "lab")
    set(${out}_release "lab" PARENT_SCOPE)
    set(${out} "${CMAKE_BINARY_DIR}/lab/driver" PARENT_SCOPE)
    return()
  endif()

  set(folder "${VELMARINE_DRIVER_DIR}")
  set(remedy "a release build embeds the published WinDivert.dll and WinDivert64.sys of WinDivert \
2.2.2-A (folder x64 of WinDivert-2.2.2-A.zip, https://github.com/basil00/WinDivert/releases); put \
both into that folder or name another one with -DVELMARINE_DRIVER_DIR=FOLDER")
  set(dll missing)
  set(sys missing)
  if(EXISTS "${folder}/WinDivert.dll" AND EXISTS "${folder}/WinDivert64.sys")
    file(SHA256 "${folder}/WinDivert.dll" dll)
    file(SHA256 "${folder}/WinDivert64.sys" sys)
  endif()
  foreach(release ${WINDIVERT_RELEASES})
    if(dll STREQUAL "${WINDIVERT_${release}_DLL}" AND sys STREQUAL "${WINDIVERT_${release}_SYS}")
      message(STATUS "Embedding the WinDivert ${release} driver files from ${folder}")
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                   "${folder}/WinDivert.dll" "${folder}/WinDivert64.sys")
      set(${out} "${folder}" PARENT_SCOPE)
      set(${out}_release "${release}" PARENT_SCOPE)
      return()
    endif()
  endforeach()
  if(dll STREQUAL "missing")
    message(FATAL_ERROR "The driver files are not in ${folder}: ${remedy}.")
  endif()
  message(FATAL_ERROR "The driver files in ${folder} are not the published ones: ${remedy}.")
endfunction()
