#pragma once

#include <QObject>

#include <memory>
#include <vector>

// The C++ test classes of the views, run one after the other by ViewsTestMain.cpp.
std::vector<std::unique_ptr<QObject>> makeSymbolsTests();
std::vector<std::unique_ptr<QObject>> makeLevelIndicatorTests();
