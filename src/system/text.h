#pragma once

#include <string>

/// The text without its carriage returns and line feeds, wherever they stand: a controller's text keeps its
/// line end up to the handler.
std::string withoutLineEnds(std::string text);
