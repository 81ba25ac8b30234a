# System libraries that are loaded at their first call. Windows looks for the libraries in a program's import
# table beside the program first, before any of its code can prevent that; only the preloaded ones (KnownDLLs)
# are safe there. All others are listed here with the functions that the program calls; a function missing from
# the list is a link error.
set(DELAYED_IMPORTS
  "bcrypt BCryptCloseAlgorithmProvider BCryptCreateHash BCryptDestroyHash BCryptFinishHash BCryptHashData BCryptOpenAlgorithmProvider"
  "crypt32 CryptEncodeObject"
  "dwmapi DwmSetWindowAttribute"
  "iphlpapi CancelMibChangeNotify2 FreeMibTable GetAdaptersAddresses GetIpForwardTable2 IcmpCloseHandle IcmpCreateFile IcmpSendEcho NotifyUnicastIpAddressChange"
  "winhttp WinHttpCloseHandle WinHttpConnect WinHttpCrackUrl WinHttpGetDefaultProxyConfiguration WinHttpGetIEProxyConfigForCurrentUser WinHttpOpen WinHttpOpenRequest WinHttpQueryDataAvailable WinHttpQueryHeaders WinHttpReadData WinHttpReceiveResponse WinHttpSendRequest WinHttpSetOption WinHttpSetStatusCallback WinHttpSetTimeouts"
  "wintrust WTHelperGetProvCertFromChain WTHelperGetProvSignerFromChain WTHelperProvDataFromStateData WinVerifyTrust"
  "wtsapi32 WTSFreeMemory WTSQuerySessionInformationW WTSRegisterSessionNotification WTSUnRegisterSessionNotification")

# delayed_imports(OUT): sets OUT to the folder of import libraries that replace the system's.
function(delayed_imports out)
  set(folder "${CMAKE_BINARY_DIR}/delayed_imports")
  foreach(line IN LISTS DELAYED_IMPORTS)
    separate_arguments(words UNIX_COMMAND "${line}")
    list(POP_FRONT words library)
    list(JOIN words "\n" functions)
    set(definition "LIBRARY \"${library}.dll\"\nEXPORTS\n${functions}\n")
    set(file "${folder}/${library}.def")
    set(before "")
    if(EXISTS "${file}")
      file(READ "${file}" before)
    endif()
    if(NOT before STREQUAL definition OR NOT EXISTS "${folder}/lib${library}.a")
      file(WRITE "${file}" "${definition}")
      execute_process(COMMAND x86_64-w64-mingw32-dlltool -d "${library}.def" --output-delaylib "lib${library}.a"
        WORKING_DIRECTORY "${folder}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
  endforeach()
  set(${out} "${folder}" PARENT_SCOPE)
endfunction()
