//===- tools/buildcontext/BuildContext.cpp - What a program says it is ----===//
//
// The BuildContext_ symbols that every host program defines, as a real host
// would: the library reads them from the running program into its build
// context (BuildApplication, BuildVersion, ... and the program string made
// from them). The demo host, retrace and the test programs compile this one
// source, each with its own application name (qz_add_build_context).
//
//===----------------------------------------------------------------------===//
#ifndef QZ_BUILD_APPLICATION
#error "QZ_BUILD_APPLICATION names the program (see qz_add_build_context)"
#endif

extern "C" {
// Plain char* variables, found by name: the library copies the text each
// points to. A program that defines none of them still runs, as an
// "Unknown Application".
extern const char* const BuildContext_BuildApplication;
extern const char* const BuildContext_BuildVersion;
extern const char* const BuildContext_BuildConfig;
extern const char BuildContext_BuildDateTime[];
extern const char* const BuildContext_BuildHostName;
extern const char* const BuildContext_BuildDBMS;
extern const char* const BuildContext_BuildDBMSVersion;
extern const char* const BuildContext_BuildOS;
extern const char* const BuildContext_BuildOSArch;

const char* const BuildContext_BuildApplication = QZ_BUILD_APPLICATION;
const char* const BuildContext_BuildVersion = QZ_BUILD_VERSION;
const char* const BuildContext_BuildConfig = QZ_BUILD_CONFIG;
const char BuildContext_BuildDateTime[] = __DATE__ " " __TIME__;
const char* const BuildContext_BuildHostName = "";
const char* const BuildContext_BuildDBMS = "None";
const char* const BuildContext_BuildDBMSVersion = "";
const char* const BuildContext_BuildOS = QZ_BUILD_OS;
const char* const BuildContext_BuildOSArch = QZ_BUILD_ARCH;
}
