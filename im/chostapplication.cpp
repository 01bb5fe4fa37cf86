#include "chostapplication.h"

#include "sdk/wide_text.h"

CHostApplication::CHostApplication(const QString& dataFolder) : dataFolder_(dataFolder) {}

base::FilePath CHostApplication::GetDataFolder() { return wide_text::pathFromQ(dataFolder_); }
