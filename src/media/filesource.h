#pragma once

#include "media/gstsource.h"

/// A transport stream file as source.
class filesource : public gstsource
{
public:
    explicit filesource(std::string location);
    ~filesource() override;

private:
    GstElement* filesrc; ///< borrowed from the bin
    GstElement* bin; ///< borrowed from the pipeline
};
