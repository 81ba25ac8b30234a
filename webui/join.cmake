# Joins the page's parts into the one file that the program carries: cmake -DOUT=<file> -P webui/join.cmake
# In app.html.in a line "@style/ground.css@" stands for that file. The scripts are modules, so that tests can import
# them one by one; joined, they share one scope, and their import and export words are left out.
cmake_minimum_required(VERSION 3.22)
if(NOT OUT)
  message(FATAL_ERROR "Say where the page goes: cmake -DOUT=<file> -P webui/join.cmake")
endif()

set(folder "${CMAKE_CURRENT_LIST_DIR}")
file(READ "${folder}/app.html.in" page)
string(REGEX MATCHALL "@[a-z_/]+\\.(css|js)@" marks "${page}")
foreach(mark IN LISTS marks)
  string(REPLACE "@" "" part "${mark}")
  file(READ "${folder}/${part}" text)
  if(part MATCHES "\\.js$")
    string(REGEX REPLACE "(^|\n)import [^;]*;" "" text "${text}")
    string(REGEX REPLACE "(^|\n)export " "\\1" text "${text}")
  endif()
  string(STRIP "${text}" text)
  string(REPLACE "${mark}" "${text}" page "${page}")
endforeach()
file(WRITE "${OUT}" "${page}")
