// The verbs of mdstore, each <Name>Verb.cpp in its family folder; each takes its own argv
// (argv[0] the verb's name) and returns the exit status (0 done, 1 usage, 2 damage or failure).
#pragma once

int InfoVerb(int argc, char** argv);
int CatVerb(int argc, char** argv);
int CopyVerb(int argc, char** argv);
int VerifyVerb(int argc, char** argv);
int SummaryVerb(int argc, char** argv);
int ExportVerb(int argc, char** argv);
int ReportVerb(int argc, char** argv);
int DiffVerb(int argc, char** argv);
int TrafficVerb(int argc, char** argv);
// Evidence packages (NoPackaging.cpp in a build without OpenSSL).
int PackageVerb(int argc, char** argv);
int KeygenVerb(int argc, char** argv);
int CheckPackageVerb(int argc, char** argv);

extern const char* const kUsage;
extern const char* const kInfoUsage;
extern const char* const kCatUsage;
extern const char* const kCopyUsage;
extern const char* const kVerifyUsage;
extern const char* const kSummaryUsage;
extern const char* const kExportUsage;
extern const char* const kReportUsage;
extern const char* const kDiffUsage;
extern const char* const kTrafficUsage;
extern const char* const kPackageUsage;
extern const char* const kKeygenUsage;
extern const char* const kCheckPackageUsage;
// What --version says of packaging: in this build or not.
extern const char* const kPackagingText;
