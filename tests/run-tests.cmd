@echo off
rem Runs every test program of this folder on Windows and writes what they say to results.txt, ending with
rem one line of sums. Nothing has to be installed. Start it as administrator: some tests start the program,
rem which is refused to others. The tests that wine_only.txt names are left out; that file says why.
setlocal EnableExtensions EnableDelayedExpansion
cd /d "%~dp0"
set "results=%~dp0results.txt"
set "TEMP=%TEMP%\velmarine-tests"
set "TMP=%TEMP%"
if not exist "%TEMP%" mkdir "%TEMP%"
set passed=0
set failed=0
set "failures="
echo Velmarine.Client, tests on Windows>"%results%"
ver >>"%results%"
for %%p in (tests\*_test.exe) do call :run "%%~np"
rmdir /s /q "%TEMP%" 2>nul
set "summary=%passed% programs passed, %failed% failed"
if defined failures set "summary=%summary%:%failures%"
echo %summary%
echo %summary%>>"%results%"
if not "%failed%"=="0" exit /b 1
exit /b 0

rem Runs one program without the tests that wine_only.txt names for it. It has passed if it says so and ends
rem with 0. Its output goes by way of files of its own, because a program that a test has started may hold
rem the first one open for some seconds longer.
:run
set "filter="
for /f "usebackq eol=# tokens=1,2" %%a in ("wine_only.txt") do if "%%a"=="%~1" set "filter=!filter!%%b:"
if defined filter set "filter=--gtest_filter=-%filter%"
echo %~1
echo ==== %~1 %filter%>>"%results%"
"tests\%~1.exe" --gtest_color=no %filter% >"%TEMP%\%~1.txt" 2>&1
set code=%errorlevel%
copy /y "%TEMP%\%~1.txt" "%TEMP%\said.txt" >nul
type "%TEMP%\said.txt" >>"%results%"
find "[  PASSED  ]" "%TEMP%\said.txt" >nul
if errorlevel 1 set code=1
if "%code%"=="0" (
  set /a passed+=1 >nul
) else (
  set /a failed+=1 >nul
  set "failures=%failures% %~1"
)
exit /b 0
