# Joins the page's parts into the one file embedded in the program: cmake -DOUT=<file> -P webui/join.cmake
# In app.html.in a line "@style/ground.css@" stands for that file. The scripts are modules, so that tests can import
# them one by one; joined, they share one scope, and their import and export words are left out.
cmake_minimum_required(VERSION 3.22)
if(NOT OUT)
  message(FATAL_ERROR "Say where the page goes: cmake -DOUT=<file> -P webui/join.cmake")
endif()

set(folder "${CMAKE_CURRENT_LIST_DIR}")
file(READ "${folder}/app.html.in" page)
string(REGEX MATCHALL "@[a-z_/]+\\.(css|js)@" marks "${page}")
# Sets `out` to script constants for the texts that page and program share.
function(shared_texts out)
  file(READ "${folder}/../src/text/page_texts.cpp" list)
  string(REGEX MATCHALL "k[A-Za-z]+\\[\\] = L\"[^\"]*\"" texts "${list}")
  set(script "")
  foreach(text IN LISTS texts)
    string(REGEX REPLACE "^(k[A-Za-z]+)\\[\\] = L\"(.*)\"$" "const \\1 = '\\2'" line "${text}")
    string(APPEND script "${line};\n")
  endforeach()
  set(${out} "${script}" PARENT_SCOPE)
endfunction()

foreach(mark IN LISTS marks)
  string(REPLACE "@" "" part "${mark}")
  if(part STREQUAL "script/texts.js")
    shared_texts(text)
  else()
    file(READ "${folder}/${part}" text)
  endif()
  if(part MATCHES "\\.js$")
    string(REGEX REPLACE "(^|\n)import [^;]*;" "" text "${text}")
    string(REGEX REPLACE "(^|\n)export " "\\1" text "${text}")
  endif()
  string(STRIP "${text}" text)
  string(REPLACE "${mark}" "${text}" page "${page}")
endforeach()

# Sets `out` to the CSP source expression that admits exactly the text inside the page's one element
# `tag`: its SHA-256 in Base64 (RFC 4648), three bytes as four letters.
function(only_this_text out tag)
  string(REGEX MATCH "<${tag}>(.*)</${tag}>" found "${page}")
  string(SHA256 hex "${CMAKE_MATCH_1}")
  set(alphabet "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
  set(base64 "")
  foreach(start RANGE 0 60 6)
    string(SUBSTRING "${hex}00" ${start} 6 three)  # the 32 bytes are one short of eleven times three
    foreach(shift 18 12 6 0)
      math(EXPR index "(0x${three} >> ${shift}) & 63")
      string(SUBSTRING "${alphabet}" ${index} 1 letter)
      string(APPEND base64 "${letter}")
    endforeach()
  endforeach()
  string(SUBSTRING "${base64}" 0 43 base64)
  set(${out} "'sha256-${base64}='" PARENT_SCOPE)
endfunction()

# Whatever gets into the page's texts, the browser runs and applies only what this file contains, and
# loads nothing.
only_this_text(style "style")
only_this_text(script "script")
string(JOIN ";\n  " content_policy
  "default-src 'none'" "script-src ${script}" "style-src ${style}" "base-uri 'none'" "form-action 'none'")
string(REPLACE "@content_policy@" "${content_policy}" page "${page}")
file(WRITE "${OUT}" "${page}")
