// A player that can pause: one playback stream of silence that starts corked, is corked by
// the line "pause" on standard input and uncorked by any other. It answers "ready" once the
// stream exists.
// Usage: corked-stream APPLICATION-BINARY
#include <cstdio>
#include <cstring>
#include <iostream>
#include <pulse/pulseaudio.h>
#include <string>
#include <vector>

namespace {

pa_threaded_mainloop* loop;
pa_stream* stream;

void writeSilence(pa_stream* s, size_t bytes, void*)
{
    std::vector<char> zeros(bytes, 0);
    pa_stream_write(s, zeros.data(), zeros.size(), nullptr, 0, PA_SEEK_RELATIVE);
}

void streamState(pa_stream* s, void*)
{
    if (pa_stream_get_state(s) == PA_STREAM_READY) {
        std::printf("ready\n");
        std::fflush(stdout);
    }
}

void contextState(pa_context* c, void* binary)
{
    if (pa_context_get_state(c) != PA_CONTEXT_READY)
        return;
    const pa_sample_spec format{PA_SAMPLE_S16LE, 44100, 2};
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_PROCESS_BINARY, static_cast<char*>(binary));
    stream = pa_stream_new_with_proplist(c, "silence", &format, nullptr, properties);
    pa_proplist_free(properties);
    pa_stream_set_state_callback(stream, streamState, nullptr);
    pa_stream_set_write_callback(stream, writeSilence, nullptr);
    pa_stream_connect_playback(stream, nullptr, nullptr, PA_STREAM_START_CORKED, nullptr, nullptr);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return 2;
    loop = pa_threaded_mainloop_new();
    pa_context* context = pa_context_new(pa_threaded_mainloop_get_api(loop), "corked-stream");
    pa_context_set_state_callback(context, contextState, argv[1]);
    pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr);
    pa_threaded_mainloop_start(loop);

    std::string line;
    while (std::getline(std::cin, line)) {
        pa_threaded_mainloop_lock(loop);
        if (stream)
            pa_operation_unref(pa_stream_cork(stream, line == "pause", nullptr, nullptr));
        pa_threaded_mainloop_unlock(loop);
    }
    pa_threaded_mainloop_stop(loop);
    return 0;
}
