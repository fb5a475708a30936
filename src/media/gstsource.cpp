#include "media/gstsource.h"

#include "media/gstimpl.h"

gstsource::~gstsource() = default;

int gstsource::getProgramNumber(int index)
{
    return impl->getProgramNumber(index);
}
int gstsource::play(int programNumber)
{
    return impl->play(programNumber);
}
int gstsource::scanStream()
{
    return impl->scan();
}
void gstsource::recordStream(std::string path)
{
    impl->record(path);
}
void gstsource::stop()
{
    impl->stop();
}
int gstsource::sendStream()
{
    return impl->sendStream();
}
void gstsource::debugdotfile(std::string name)
{
    impl->debugdotfile(name);
}
std::vector<std::uint8_t>* gstsource::getPAT()
{
    return impl->getPAT();
}
std::vector<std::uint8_t>* gstsource::getPMT()
{
    return impl->getPMT();
}
std::vector<std::uint8_t>* gstsource::getNIT()
{
    return impl->getNIT();
}
int gstsource::getTotalNumberOfProgramsFound()
{
    return impl->getTotalNumberOfProgramsFound();
}
int gstsource::getVideoDecodedWidth()
{
    return impl->getVideoDecodedWidth();
}
int gstsource::getVideoDecodedHeight()
{
    return impl->getVideoDecodedHeight();
}
GstCaps* gstsource::getVideoDecodedCaps()
{
    return impl->getVideoDecodedCaps();
}
GstCaps* gstsource::getAudioDecodedCaps()
{
    return impl->getAudioDecodedCaps();
}

bool gstsource::hasStreamInformation()
{
    return impl->hasSDT();
}

void gstsource::status(std::string* out)
{
    if (out)
        impl->status(out);
}

std::vector<std::uint8_t>* gstsource::getStreamInformation()
{
    static const char tag[] = {'<', 'S', 'D', 'T', '>'};
    if (!hasStreamInformation())
        return nullptr;
    streamInformation.assign(std::begin(tag), std::end(tag));
    impl->appendSDT(streamInformation);
    return &streamInformation;
}
