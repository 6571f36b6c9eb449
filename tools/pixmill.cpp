// pixmill: try Pixmill filters, recipes and inspections from a shell.
//
// The tool knows no filter by name: it reads the library's filter
// description document for everything it lists, checks and suggests, and it
// runs filters and recipes through the library's exported functions.
#include <CLI/CLI.hpp>

#include <clocale>
#include <stdexcept>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <unistd.h>

#include "Check.h"
#include "Demo.h"
#include "Inspect.h"
#include "ParallelRuns.h"
#include "ToolSupport.h"
#include "pixmill/pixmill_ext.h"

namespace fs = std::filesystem;
using namespace pixmill::tool;

namespace {

// The library refuses a recipe or parameter text whose number does not read
// and says so in the calling thread's last error; the tool reports that as
// an argument error.
void CheckRefusal() {
    const std::string last = PixmillLastError();
    if (last.find("result=\"refused\"") != std::string::npos)
        throw std::invalid_argument(last);
}


void PrintFilter(const FilterInfo& f) {
    std::cout << f.name << "\n";
    std::cout << "  pins:";
    if (f.pins.empty()) std::cout << " none";
    for (const PinInfo& p : f.pins) std::cout << "  " << p.name << " (" << p.key << ")";
    std::cout << "\n";
    if (f.params.empty()) {
        std::cout << "  params: none\n";
        return;
    }
    size_t width = 0;
    for (const ParamInfo& p : f.params) width = std::max(width, p.name.size());
    for (size_t i = 0; i < f.params.size(); ++i) {
        const ParamInfo& p = f.params[i];
        std::cout << (i == 0 ? "  params: " : "          ") << p.name
                  << std::string(width - p.name.size() + 2, ' ') << p.type;
        if (!p.defaultValue.empty()) std::cout << "  default " << p.defaultValue;
        if (!p.min.empty() || !p.max.empty()) std::cout << "  range " << p.min << ".." << p.max;
        if (!p.step.empty()) std::cout << "  step " << p.step;
        std::cout << "\n";
    }
}

const FilterInfo& FindFilter(const std::string& name, const std::vector<FilterInfo>& all) {
    for (const FilterInfo& f : all)
        if (f.name == name) return f;
    std::string message = "unknown filter '" + name + "'";
    std::vector<std::string> near = NearestNames(name, all);
    if (!near.empty()) {
        message += "; did you mean ";
        for (size_t i = 0; i < near.size(); ++i) message += (i ? ", " : "") + near[i];
        message += "?";
    }
    throw ToolError(message + " (pixmill filters lists them all)");
}

int CommandFilters(const std::string& name, bool json) {
    std::vector<FilterInfo> all = FilterCatalogue();
    if (json && !name.empty()) {
        FindFilter(name, all);
        std::cout << FilterDescriptionJson(name) << "\n";
        return 0;
    }
    if (json) {
        const std::string text = DescriptionDocument();
        std::string pretty;
        std::cout << (PrettyJson(text, pretty) ? pretty : text) << "\n";
        return 0;
    }
    if (!name.empty()) {
        PrintFilter(FindFilter(name, all));
        return 0;
    }
    for (const FilterInfo& f : all) PrintFilter(f);
    std::cout << all.size() << " filters\n";
    return 0;
}

void PrintResult(const std::wstring& result, bool raw) {
    std::string text = Narrow(result);
    std::string pretty;
    if (!raw && PrettyJson(text, pretty)) text = pretty;
    std::cout << text << "\n";
}

void ReportOutputs(const std::vector<std::string>& written) {
    for (const std::string& path : written) std::cout << "wrote " << path << "\n";
}

int CommandFilter(const std::string& type, const std::vector<std::string>& images,
                  const std::vector<std::string>& sets, const std::string& outDir, bool raw) {
    const std::vector<FilterInfo> catalogue = FilterCatalogue();
    const FilterInfo& info = FindFilter(type, catalogue);
    std::vector<std::pair<std::string, std::string>> params;
    for (const std::string& s : sets) {
        size_t eq = s.find('=');
        if (eq == std::string::npos || eq == 0) throw UsageError("--set wants KEY=VALUE, got '" + s + "'");
        params.emplace_back(s.substr(0, eq), s.substr(eq + 1));
    }
    WarnAboutSettings(info, params);
    std::vector<InputImage> inputs;
    for (const std::string& arg : images) inputs.push_back(ParseImageArgument(arg));
    Execution run(inputs);
    LibraryErrors errors;
    FilterExecute(run.input(), run.output(), Widen(type).c_str(), Widen(ParamsObject(params)).c_str());
    const size_t reported = errors.Finish();
    CheckRefusal();
    PrintResult(run.Result(), raw);
    ReportOutputs(run.WriteOutputs(outDir, type));
    RequireClean(reported, run.OutputCount(), OutputPins(info), type);
    return 0;
}

// Runs a recipe once; returns the number of output images written.
size_t RunRecipeOnce(const std::wstring& recipe, const std::wstring& override, size_t expectedOutputs,
                     const std::vector<InputImage>& inputs, const std::string& outDir,
                     const std::string& stem, bool raw, bool quiet) {
    Execution run(inputs);
    LibraryErrors errors;
    RecipeExecute(run.input(), run.output(), recipe.c_str(), override.empty() ? nullptr : override.c_str());
    const size_t reported = errors.Finish();
    CheckRefusal();
    if (run.Result().empty()) throw ToolError("the recipe gave no result");
    if (!quiet) PrintResult(run.Result(), raw);
    std::vector<std::string> written = run.WriteOutputs(outDir, stem);
    if (!quiet) ReportOutputs(written);
    RequireClean(reported, run.OutputCount(), expectedOutputs, "the recipe");
    return written.size();
}

std::vector<std::string> ImagesOf(const std::vector<std::string>& arguments) {
    std::vector<std::string> out;
    for (const std::string& arg : arguments) {
        std::error_code ec;
        if (fs::is_directory(arg, ec)) {
            std::vector<std::string> found;
            for (const auto& e : fs::directory_iterator(arg, ec)) {
                if (e.is_regular_file() && LooksLikeImage(e.path()))
                    found.push_back(e.path().string());
            }
            std::sort(found.begin(), found.end());
            out.insert(out.end(), found.begin(), found.end());
        } else {
            out.push_back(arg);
        }
    }
    return out;
}

int CommandRun(const std::string& recipePath, const std::vector<std::string>& images,
               const std::string& overrideArg, const std::string& outDir, bool raw, bool each,
               int jobs) {
    const std::wstring recipe = ReadTextFile(recipePath);
    const std::wstring override = overrideArg.empty() ? L"" : Widen(OverrideArgumentText(overrideArg));
    const size_t expected = CheckBeforeRun(Narrow(recipe), Narrow(override));
    const std::string stem = fs::path(recipePath).stem().string();
    if (!each) {
        std::vector<InputImage> inputs;
        for (const std::string& arg : images) inputs.push_back(ParseImageArgument(arg));
        RunRecipeOnce(recipe, override, expected, inputs, outDir, stem, raw, false);
        return 0;
    }
    // One run per image, each image as ID 1 unless it names its own.
    const std::vector<std::string> all = ImagesOf(images);
    if (all.empty()) throw ToolError("--each found no images");
    const bool terminal = ::isatty(STDERR_FILENO) != 0;
    const int threads = JobsFor(jobs, all.size());
    // Images in parallel use the cores; the image library's own workers
    // would only compete with them.
    if (threads > 1) cv::setNumThreads(1);
    const std::vector<RunOutcome> outcomes = RunAll(
        all.size(), threads,
        [&](size_t i) {
            InputImage input = ParseImageArgument(all[i]);
            return RunRecipeOnce(recipe, override, expected, {input}, outDir,
                                 stem + "_" + fs::path(input.path).stem().string(), raw, true);
        },
        [&](size_t done) {
            if (terminal) std::fprintf(stderr, "\r[%zu/%zu]\x1b[K", done, all.size());
        });
    if (terminal) std::fputc('\n', stderr);
    size_t ok = 0, failed = 0, outputs = 0;
    for (size_t i = 0; i < outcomes.size(); ++i) {
        if (outcomes[i].ok) {
            ++ok;
            outputs += outcomes[i].outputs;
        } else {
            ErrorLine("pixmill: " + all[i] + ": " + outcomes[i].error);
            ++failed;
        }
    }
    std::cout << all.size() << " runs: " << ok << " ran, " << failed << " failed; " << outputs
              << " images written to " << outDir << "\n";
    return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "C.UTF-8");
    CLI::App app{"pixmill: try Pixmill filters, recipes and inspections without a host program"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("pixmill ") + PIXMILL_TOOL_VERSION);

    auto* filters = app.add_subcommand("filters", "List the registered filters with their pins and parameters");
    std::string filterName;
    bool json = false;
    filters->add_option("NAME", filterName, "Show one filter only");
    filters->add_flag("--json", json, "Print the filter description document as strict JSON");

    auto* filter = app.add_subcommand("filter", "Run one filter by name, as FilterExecute does");
    std::string type, filterOut = "pixmill-out";
    std::vector<std::string> filterImages, sets;
    bool filterRaw = false;
    filter->add_option("TYPE", type, "Registered filter name")->required();
    filter->add_option("IMAGE", filterImages, "Input images; IMAGE:ID routes to the input pin with that key (default 1)");
    filter->add_option("--set", sets, "Set a parameter, KEY=VALUE (repeatable)");
    filter->add_option("--out", filterOut, "Folder for the output images")->capture_default_str();
    filter->add_flag("--raw", filterRaw, "Print the result text as the library gives it");

    auto* run = app.add_subcommand("run", "Run a recipe, as RecipeExecute does");
    std::string recipePath, overrideArg, runOut = "pixmill-out";
    std::vector<std::string> runImages;
    bool runRaw = false, each = false;
    int jobs = 0;
    run->add_option("RECIPE", recipePath, "Recipe file (JSON, UTF-8 or UTF-16)")->required();
    run->add_option("IMAGE", runImages, "Input images, IMAGE:ID (default ID 1); with --each also folders");
    run->add_option("--override", overrideArg, "Parameter override document: a file or the JSON text");
    run->add_option("--out", runOut, "Folder for the output images")->capture_default_str();
    run->add_flag("--raw", runRaw, "Print the result text as the library gives it");
    run->add_flag("--each", each, "One run per image (folders are expanded), with a summary");
    run->add_option("--jobs", jobs,
                    "With --each: images run at once (default: the number of cores); one at a "
                    "time unless PIXMILL_DEBUG_IMAGES=0")
        ->check(CLI::NonNegativeNumber);

    auto* demo = app.add_subcommand("demo", "Draw sample images, run a demo recipe on them and show the results");
    std::string demoRoot = "pixmill-demo";
    demo->add_option("--root", demoRoot, "Folder for the demo's images, recipe, outputs and logs")->capture_default_str();

    InspectOptions inspectOptions;
    auto* inspect = AddInspectCommand(app, inspectOptions);

    auto* check = app.add_subcommand("check", "Check a recipe against the filter descriptions without running it");
    std::string checkPath, checkOverride;
    check->add_option("RECIPE", checkPath, "Recipe file (JSON, UTF-8 or UTF-16)")->required();
    check->add_option("--override", checkOverride, "Parameter override document to check with it: a file or the JSON text");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // Help and version exit 0; every other code of the parser is a usage error.
        return app.exit(e) == 0 ? kExitOk : kExitUsage;
    }

    try {
        if (*check) return CommandCheck(checkPath, checkOverride);
        if (*filters) return CommandFilters(filterName, json);
        if (*filter) return CommandFilter(type, filterImages, sets, filterOut, filterRaw);
        if (*run) return CommandRun(recipePath, runImages, overrideArg, runOut, runRaw, each, jobs);
        if (*demo) return RunDemo(demoRoot);
        if (*inspect) return RunInspect(*inspect, inspectOptions);
    } catch (const UsageError& e) {
        ErrorLine(std::string("pixmill: ") + e.what());
        return kExitUsage;
    } catch (const ToolError& e) {
        ErrorLine(std::string("pixmill: ") + e.what());
        return kExitFailed;
    } catch (const std::exception& e) {
        // A recipe or parameter text the library refused (CheckRefusal).
        ErrorLine(std::string("pixmill: the library refused the input: ") + e.what());
        return kExitUsage;
    }
    return 0;
}
