#pragma once

#include <CLI/App.hpp>
#include <functional>

namespace vantamo::tools::collect {

/// Adds `vantamo collect`; the job that it asks for answers the program's exit status.
void addCollect(CLI::App& app, std::function<int()>& job);

}  // namespace vantamo::tools::collect
