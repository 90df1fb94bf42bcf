#pragma once

#include "ingest/LineTailReader.h"
#include "ingest/PiParser.h"

namespace sonra {

/// Follows a transcript of Pi: a JSON object on each line. For the rest as LineTailReader.
class PiReader : public LineTailReader<PiParser> {};

}  // namespace sonra
