#include "media/MediaSource.h"
#include "support/ReadyFuture.h"

QFuture<std::optional<MediaSource::Item>> NoMediaSource::current()
{
    return readyFuture(std::optional<Item>());
}

void NoMediaSource::send(Command) {}
