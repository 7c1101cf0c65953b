// The verbs of mdstore; each returns the exit status (0 done, 1 usage, 2 damage or failure).
#pragma once

#include <string>
#include <vector>

int InfoVerb(const std::vector<std::string>& args);
int CatVerb(const std::vector<std::string>& args);
int CopyVerb(const std::vector<std::string>& args);
int VerifyVerb(const std::vector<std::string>& args);
int SummaryVerb(const std::vector<std::string>& args);
int DiffVerb(const std::vector<std::string>& args);     // Diff.cpp
int TrafficVerb(const std::vector<std::string>& args);  // ToTraffic.cpp

extern const char* const kUsage;
extern const char* const kInfoUsage;
extern const char* const kCatUsage;
extern const char* const kCopyUsage;
extern const char* const kVerifyUsage;
extern const char* const kSummaryUsage;
extern const char* const kDiffUsage;
extern const char* const kTrafficUsage;
