@echo off
rem Tries the plug-in over the local storage engine: puts both together in the folder "try" beside this file, keeps the
rem pools there too, and starts zdhost with the arguments given, or its shell. "bin" stays as it is.
setlocal
set "here=%~dp0"
if not exist "%here%try\pools" mkdir "%here%try\pools"
copy /y "%here%bin\*" "%here%try\" >nul
copy /y "%here%local\*.dll" "%here%try\" >nul
if not exist "%here%try\zdhost.exe" exit /b 1
if not exist "%here%try\hul.dll" exit /b 1
set "ZDVFS_LOCAL_ROOT=%here%try\pools"
set ZDVFS_LOCAL_CREATE=1
if "%~1"=="" ("%here%try\zdhost.exe" shell) else ("%here%try\zdhost.exe" %*)
