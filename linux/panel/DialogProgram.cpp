#include "linux/panel/DialogProgram.h"

#include <array>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

namespace glintmark::platform {

namespace {

using Arguments = std::vector<std::string>;

Arguments zenityArguments(const OpenPanel::Settings& settings) {
    Arguments arguments{"--file-selection", "--title=" + settings.message};
    if (settings.canChooseDirectories) {
        arguments.emplace_back("--directory");
    }
    return arguments;
}

Arguments kdialogArguments(const OpenPanel::Settings& settings) {
    return {"--title", settings.message,
            settings.canChooseDirectories ? "--getexistingdirectory" : "--getopenfilename",
            g_get_home_dir()};
}

struct Program {
    const char* name;
    Arguments (*arguments)(const OpenPanel::Settings&);
};

constexpr std::array programs{Program{"zenity", zenityArguments},
                              Program{"kdialog", kdialogArguments}};

GObjectHandle<GSubprocess> spawn(const Program& program, const OpenPanel::Settings& settings) {
    const GStringHandle executable(g_find_program_in_path(program.name));
    if (executable == nullptr) {
        return nullptr;
    }
    const Arguments arguments = program.arguments(settings);
    std::vector<const gchar*> argv{executable.get()};
    for (const auto& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    constexpr auto flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                         G_SUBPROCESS_FLAGS_STDERR_SILENCE);
    return GObjectHandle<GSubprocess>(g_subprocess_newv(argv.data(), flags, nullptr));
}

}  // namespace

std::unique_ptr<DialogProgram> DialogProgram::start(const OpenPanel::Settings& settings,
                                                    Done done) {
    for (const Program& program : programs) {
        if (auto process = spawn(program, settings)) {
            return std::unique_ptr<DialogProgram>(
                new DialogProgram(std::move(process), std::move(done)));
        }
    }
    return nullptr;
}

DialogProgram::DialogProgram(GObjectHandle<GSubprocess> process, Done done)
    : process_(std::move(process)), cancellable_(g_cancellable_new()), done_(std::move(done)) {
    const auto finished = [](GObject* source, GAsyncResult* result, gpointer self) {
        GErrorOut error;
        GBytes* output = nullptr;
        g_subprocess_communicate_finish(G_SUBPROCESS(source), result, &output, nullptr,
                                        error.out());
        const GBytesHandle owner(output);
        if (!isCancelled(error.get())) {
            static_cast<DialogProgram*>(self)->ended(output);
        }
    };
    g_subprocess_communicate_async(process_.get(), nullptr, cancellable_.get(), finished, this);
}

DialogProgram::~DialogProgram() {
    g_cancellable_cancel(cancellable_.get());
    g_subprocess_send_signal(process_.get(), SIGTERM);  // no effect if it has ended
}

/// If the user chose a path, both programs print it with a line feed and exit with status 0.
void DialogProgram::ended(GBytes* output) {
    OpenPanel::Result result;
    if (output != nullptr && g_subprocess_get_successful(process_.get()) != FALSE) {
        gsize length = 0;
        const auto* bytes = static_cast<const char*>(g_bytes_get_data(output, &length));
        if (length > 0 && bytes[length - 1] == '\n') {
            --length;
        }
        result.response = ModalResponse::ok;
        if (length > 0) {
            result.path.emplace(bytes, length);
        }
    }
    done_(std::move(result));
}

}  // namespace glintmark::platform
