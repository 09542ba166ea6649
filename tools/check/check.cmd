@echo off
rem check.cmd: runs the tests of ZAREXT on this machine, from an elevated prompt.
rem   check.cmd                    everything that leaves the certificate stores alone
rem   check.cmd /all               also what writes into the system's stores: for machines that are thrown away
rem   check.cmd /without-patches   on Wine: without what fills its gaps
rem README.md says what is changed meanwhile, and put back. Ends with "N passed, N failed".
setlocal
set all=
set ZAREXT_WITHOUT_PATCHES=
:options
if "%~1"=="" goto begin
if /i "%~1"=="/all" (set all=yes) else if /i "%~1"=="/without-patches" (set ZAREXT_WITHOUT_PATCHES=1) else (
  echo usage: check.cmd [/all] [/without-patches]
  exit /b 2
)
shift
goto options

:begin
set bin=%~dp0bin
set here=%CD%
set work=%TEMP%\zarext-check-%RANDOM%%RANDOM%
set logs=%work%\logs
if exist c:\zarext.log (
  echo c:\zarext.log exists: move it away first, the tests write and delete a file of this name.
  exit /b 2
)
mkdir "%logs%"
mkdir "%work%\tmp"
set TMP=%work%\tmp
set TEMP=%work%\tmp
set ZARVEL_DEV_HOME=%work%\containers
cd /d "%work%"

"%bin%\zarext-check.exe" keep
if errorlevel 1 (
  echo The registration cannot be kept: is this prompt elevated?
  exit /b 2
)
for /f "usebackq tokens=1,2,3" %%p in ("%~dp0programs.txt") do call :program %%p %%q %%r
"%bin%\zarext-check.exe" restore
if errorlevel 1 (
  echo The registration could not be put back. The copy stays in HKLM\SOFTWARE\ZAREXT-check.
  exit /b 3
)
"%bin%\zarext-check.exe" forget
cd /d "%here%"
"%bin%\zarext-check.exe" report "%logs%" "%here%\zarext-check-logs.zip"
exit /b %errorlevel%

rem :program NAME any|stores FILTER: one program, with the registration as it was found.
:program
set filter=*
if "%all%"=="yes" goto run
if "%2"=="stores" (
  echo %1: left out, it writes into the system's stores
  goto :eof
)
set filter=%3
:run
echo %1
"%bin%\zarext-check.exe" restore
set options="--gtest_filter=%filter%" "--gtest_output=xml:%logs%\%1.xml"
if "%1"=="zarext-demo" set options="--certificates=%bin%\..\certificates"
"%bin%\%1.exe" %options% >"%logs%\%1.log" 2>&1
set code=%errorlevel%
>"%logs%\%1.exit" echo %code%
goto :eof
