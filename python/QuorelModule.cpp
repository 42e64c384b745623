// The Python module "quorel": degrees, scripts, runs, statistics and records of the command line,
// as Python calls with NumPy arrays and dicts. The long work runs without the GIL.

#include "criterion/Aggregation.h"
#include "criterion/FieldStatistics.h"
#include "criterion/FuzzyKind.h"
#include "criterion/LayerRun.h"
#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/Preview.h"
#include "criterion/Script.h"
#include "errors/Component.h"
#include "fzy/FzyFormat.h"
#include "host/api/Host.h"
#include "lang/Module1.h"
#include "lang/StandaloneLanguage.h"
#include "source/Application.h"
#include "source/OpenSource.h"
#include "util/Error.h"
#include "util/MessageUi.h"

#include <pybind11/functional.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace py = pybind11;

namespace quorel::python {
namespace {

namespace fs = std::filesystem;

// Text ids shared with the command line's messages.
constexpr std::int16_t kTextError = 205;
constexpr std::int16_t kTextNoSuchLayer = 270;
constexpr std::int16_t kTextNoNumericField = 271;

// quorel.Error and its subclass quorel.RefusedError, made when the module is imported.
PyObject* g_error = nullptr;
PyObject* g_refused = nullptr;

// Raised as the Python exception `type` with `message`.
struct PythonError {
    PyObject* type;
    std::string message;
};

// Keeps the boxes a run shows, to become its exception's text.
class CollectingUi final : public util::IMessageUi {
public:
    void MessageBox(const std::string& text, util::MessageIcon icon,
                    const std::optional<std::string>& /*title*/ = std::nullopt) override {
        if (icon != util::MessageIcon::None) {
            boxes.push_back(text);
        }
    }
    void Beep() override {}
    void SetBusy(bool /*busy*/) override {}

    // The boxes' texts, one after another, with Python's line ends.
    std::string Text() const {
        std::string text;
        for (const std::string& box : boxes) {
            std::string lines;
            for (const char ch : box) {
                if (ch != '\r') {
                    lines += ch;
                }
            }
            const auto first = lines.find_first_not_of(" \n");
            const auto last = lines.find_last_not_of(" \n");
            if (first != std::string::npos) {
                text += (text.empty() ? "" : "\n") + lines.substr(first, last - first + 1);
            }
        }
        return text;
    }
    std::vector<std::string> boxes;
};

std::string TextDatabaseFolder() {
    const fs::path own = errors::OwnComponent().folder;
    const fs::path installed = (own / QUOREL_COMPONENTDIR_FROM_PYTHONDIR).lexically_normal();
    std::error_code error;
    if (!fs::exists(own / lang::kTextDatabaseFile, error) &&
        fs::exists(installed / lang::kTextDatabaseFile, error)) {
        return installed.string();
    }
    return own.string();
}

// The texts, loaded at first use in the language of the user's settings. Messages shown while
// loading (a missing database) are dropped: Message then falls back to its English texts.
std::mutex g_languageMutex;
lang::StandaloneLanguage& Language() {
    static CollectingUi ui;
    static lang::StandaloneLanguage language(ui, TextDatabaseFolder());
    return language;
}
const util::ITextSource& Texts() {
    const std::lock_guard lock(g_languageMutex);
    return Language().Texts();
}

std::string Message(std::int16_t id, const char* fallback, const std::vector<std::string>& args) {
    std::string pattern = Texts().ResourceString(id);
    if (pattern.empty()) {
        pattern = fallback;
    }
    return criterion::FillPlaceholders(pattern, args);
}

// A quorel::Error as the command line reports it.
PythonError FromError(const Error& error) {
    return {g_error, Message(kTextError, "error %1: %2",
                             {std::to_string(error.Number()), error.Description()})};
}

// A parameter as a box holds it: None is an empty box, anything else its text.
std::string BoxText(const py::object& value) {
    if (value.is_none()) {
        return {};
    }
    if (py::isinstance<py::str>(value)) {
        return value.cast<std::string>();
    }
    // Any real number (int, float, NumPy's scalars) as its shortest exact text.
    if (!py::isinstance<py::bool_>(value)) {
        try {
            return py::str(py::float_(value.cast<double>())).cast<std::string>();
        } catch (const py::cast_error&) {
        }
    }
    throw py::type_error("a parameter is None, a number or a text, not " +
                         std::string(py::str(py::type::of(value))));
}

// A path as text, or any os.PathLike.
std::string PathText(const py::object& path) {
    return py::module_::import("os").attr("fspath")(path).cast<std::string>();
}

void CheckKind(int kind) {
    if (kind < 0 || kind > 5) {
        throw py::value_error("kind takes 0 to 5, not " + std::to_string(kind));
    }
}

struct Criterion {
    int kind = 0;
    double a = 0, b = 0, c = 0, d = 0;
};

// Read, completed and order-checked as the dialog does before a run.
Criterion ReadCriterion(int kind, const py::object& a, const py::object& b, const py::object& c,
                        const py::object& d) {
    CheckKind(kind);
    Criterion r;
    r.kind = kind;
    r.a = criterion::ParseNumberText(BoxText(a), criterion::kDefaultA);
    r.b = criterion::ParseNumberText(BoxText(b), criterion::kDefaultBCD);
    r.c = criterion::ParseNumberText(BoxText(c), criterion::kDefaultBCD);
    r.d = criterion::ParseNumberText(BoxText(d), criterion::kDefaultBCD);
    criterion::CompleteParameters(r.kind, r.a, r.b, r.c, r.d);
    if (!criterion::CheckParameterOrder(r.a, r.b, r.c, r.d)) {
        throw PythonError{g_refused, criterion::ParameterOrderMessage(Texts(), r.a, r.b, r.c, r.d)};
    }
    return r;
}

// pybind11 makes a C-contiguous float64 copy only of an array that is not one already.
using Float64Array = py::array_t<double, py::array::c_style | py::array::forcecast>;

py::array_t<double> MembershipOf(int kind, const py::object& a, const py::object& b,
                                 const py::object& c, const py::object& d,
                                 const Float64Array& input) {
    const Criterion r = ReadCriterion(kind, a, b, c, d);
    std::optional<criterion::MembershipFunction> degree;
    try {
        degree.emplace(r.kind, r.a, r.b, r.c, r.d);
    } catch (const Error& error) {
        PyObject* type = error.Number() == error_number::kDivisionByZero ? PyExc_ZeroDivisionError
                         : error.Number() == error_number::kOverflow     ? PyExc_OverflowError
                                                                         : g_error;
        throw PythonError{type, error.Description()};
    }
    py::array_t<double> output(
        std::vector<py::ssize_t>(input.shape(), input.shape() + input.ndim()));
    const double* x = input.data();
    double* out = output.mutable_data();
    const auto count = static_cast<std::size_t>(input.size());
    const double ofNull = degree->OfNull();
    const auto evaluate = [&](std::size_t first, std::size_t last) {
        degree->Evaluate(x + first, out + first, last - first);
        // Null (NaN) follows the script: only the singleton gives it a degree.
        if (!std::isnan(ofNull)) {
            for (std::size_t i = first; i < last; ++i) {
                out[i] = std::isnan(x[i]) ? ofNull : out[i];
            }
        }
    };
    {
        const py::gil_scoped_release release;
        // Large arrays in slices shared among the cores, as a run shares its batches.
        constexpr std::size_t kSlice = std::size_t{1} << 20;
        const std::size_t threads = std::clamp<std::size_t>(
            count / kSlice, 1, std::max(1u, std::thread::hardware_concurrency()));
        std::vector<std::jthread> helpers;
        for (std::size_t t = 1; t < threads; ++t) {
            helpers.emplace_back(evaluate, count * t / threads, count * (t + 1) / threads);
        }
        evaluate(0, count / threads);
    }
    return output;
}

std::optional<std::string> ScriptOf(int kind, const py::object& a, const py::object& b,
                                    const py::object& c, const py::object& d,
                                    const std::string& field) {
    const Criterion r = ReadCriterion(kind, a, b, c, d);
    return criterion::BuildPreExpression(r.kind, field, r.a, r.b, r.c, r.d);
}

// The source's layer, added to the host's focus map: a shapefile's one layer (named after the
// file), or a GeoPackage's table (which may be left unnamed when it is the only one).
std::shared_ptr<host::IFeatureLayer> OpenLayer(source::Application& app, const std::string& source,
                                               const std::optional<std::string>& layerName) {
    try {
        return source::OpenSourceLayer(app, source, layerName.value_or(""));
    } catch (const source::LayerChoiceError& error) {
        if (error.Asked().empty()) {
            throw PythonError{g_error, error.Description()};
        }
        throw PythonError{g_error, Message(kTextNoSuchLayer, "no layer '%1' in %2 (layers: %3)",
                                           {error.Asked(), source, error.LayerList()})};
    }
}

// A progress callable that raises stops the run: the exception is kept in failure, to be raised
// again once the run is over.
void ListenToProgress(source::Application& app, const py::object& progress,
                      std::optional<py::error_already_set>& failure) {
    if (progress.is_none()) {
        return;
    }
    app.Bar()->SetProgressListener([&progress, &failure](double fraction) {
        if (fraction < 0) {
            return;
        }
        const py::gil_scoped_acquire acquire;
        try {
            progress(fraction);
        } catch (py::error_already_set& e) {
            failure.emplace(std::move(e));
            throw Error(error_number::kHostFailure, "progress", "stopped by the caller");
        }
    });
}

// Opens the chosen layer of source in a new application that reports to progress, and changes
// it with change (run without the GIL); returns the field added, or raises the change's refusal,
// after what refusalPreface says of the layer, or its failure.
template <typename RefusalPreface, typename Change>
std::string ChangeLayer(const std::string& source, const std::optional<std::string>& layerName,
                        const py::object& progress, RefusalPreface refusalPreface, Change change) {
    auto app = std::make_shared<source::Application>();
    std::optional<py::error_already_set> progressFailure;
    ListenToProgress(*app, progress, progressFailure);
    CollectingUi ui;
    criterion::LayerRunResult result;
    std::string preface;
    try {
        const auto layer = OpenLayer(*app, source, layerName);
        preface = refusalPreface(*layer);
        const py::gil_scoped_release release;
        result = change(app, *layer, ui);
    } catch (const Error& error) {
        throw FromError(error);
    }
    if (progressFailure) {
        throw std::move(*progressFailure);
    }
    switch (result.outcome) {
    case criterion::RunOutcome::Done:
        return result.addedField;
    case criterion::RunOutcome::Refused:
        throw PythonError{g_refused, preface + ui.Text()};
    case criterion::RunOutcome::Failed:
        break;
    }
    throw PythonError{g_error, ui.Text()};
}

std::string Run(const py::object& sourcePath, const std::string& field, int kind,
                const py::object& a, const py::object& b, const py::object& c, const py::object& d,
                const std::optional<std::string>& layerName, const std::optional<std::string>& out,
                const py::object& progress) {
    const std::string source = PathText(sourcePath);
    CheckKind(kind);
    criterion::LayerRunRequest request;
    request.field = field;
    request.kind = kind;
    const py::object* boxes[] = {&a, &b, &c, &d};
    for (std::size_t i = 0; i < 4; ++i) {
        if (!boxes[i]->is_none()) {
            request.boxes[i] = BoxText(*boxes[i]);
        }
    }
    request.outName = out;
    const util::ITextSource& texts = Texts();

    return ChangeLayer(
        source, layerName, progress,
        [&field](host::IFeatureLayer& layer) {
            const auto numeric = criterion::NumericFields(layer);
            if (std::find(numeric.begin(), numeric.end(), field) != numeric.end()) {
                return std::string();
            }
            return Message(kTextNoNumericField, "%1 has no numeric field %2",
                           {layer.Name(), field}) +
                   "\n";
        },
        [&request, &texts](const std::shared_ptr<source::Application>& app,
                           host::IFeatureLayer& layer, CollectingUi& ui) {
            return criterion::RunOnLayer(app, layer, request, ui, texts);
        });
}

std::string Aggregate(const py::object& sourcePath, const std::vector<std::string>& fields,
                      const std::string& op, const std::optional<double>& gamma,
                      const std::optional<std::vector<double>>& weights,
                      const std::optional<std::string>& layerName,
                      const std::optional<std::string>& out, const py::object& progress) {
    const std::string source = PathText(sourcePath);
    const util::ITextSource& texts = Texts();
    criterion::LayerAggregationRequest request;
    request.fields = fields;
    try {
        request.aggregation =
            criterion::ReadAggregation(op, gamma, weights.value_or(std::vector<double>{}), texts);
    } catch (const criterion::AggregationUsageError& error) {
        throw py::value_error(error.what());
    }
    request.outName = out;

    return ChangeLayer(
        source, layerName, progress, [](host::IFeatureLayer&) { return std::string(); },
        [&request, &texts](const std::shared_ptr<source::Application>& app,
                           host::IFeatureLayer& layer, CollectingUi& ui) {
            return criterion::AggregateOnLayer(app, layer, request, ui, texts);
        });
}

py::object Stats(const py::object& sourcePath, const std::string& field,
                 const std::optional<std::string>& layerName) {
    const std::string source = PathText(sourcePath);
    auto app = std::make_shared<source::Application>();
    try {
        const auto layer = OpenLayer(*app, source, layerName);
        std::vector<double> distinct;
        std::int32_t distinctCount = 0;
        std::shared_ptr<host::IStatisticsResults> figures;
        {
            const py::gil_scoped_release release;
            const auto statistics = app->Factory().NewDataStatistics();
            statistics->SetField(field);
            statistics->SetCursor(layer->Search(false));
            distinctCount = statistics->UniqueValueCount();
            if (distinctCount <= criterion::kMaxListedValues) {
                for (const host::Value& value : statistics->UniqueValues()) {
                    if (const double* number = std::get_if<double>(&value)) {
                        distinct.push_back(*number);
                    }
                }
                std::sort(distinct.begin(), distinct.end());
            }
            statistics->SetCursor(layer->Search(false));
            figures = statistics->Statistics();
        }
        py::dict dict;
        dict["minimum"] = figures->Minimum();
        dict["maximum"] = figures->Maximum();
        dict["mean"] = figures->Mean();
        dict["standard_deviation"] = figures->StandardDeviation();
        dict["count"] = figures->Count();
        dict["distinct_count"] = distinctCount;
        dict["distinct_values"] =
            distinctCount <= criterion::kMaxListedValues ? py::cast(distinct) : py::none();
        return dict;
    } catch (const Error& error) {
        throw FromError(error);
    }
}

py::object DateTime(double automationDate) {
    static const py::object epoch = py::module_::import("datetime").attr("datetime")(1899, 12, 30);
    static const py::object days = py::module_::import("datetime").attr("timedelta");
    return epoch + days(automationDate);
}

// The dict key of an entry's field: the number entry's under the names every source's record
// shares, the record entry's others lower-cased.
std::string KeyOf(const std::string& name) {
    static const std::pair<const char*, const char*> shared[] = {
        {"FieldName", "field"}, {"AliasName", "alias"}, {"NumberKind", "kind"},
        {"ShapeName", "layer"}, {"Created", "created"},
    };
    for (const auto& [file, key] : shared) {
        if (name == file) {
            return key;
        }
    }
    std::string key = name;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
    return key;
}

// An entry of the metadata file as a dict; its end mark is the format's, not the record's.
py::dict EntryDict(const char* entry, const std::vector<fzy::FzyFieldRead>& fields,
                   const std::vector<std::string>& texts) {
    py::dict dict;
    dict["entry"] = entry;
    std::size_t text = 0;
    for (const fzy::FzyFieldRead& field : fields) {
        const std::string key = KeyOf(field.name);
        switch (field.type) {
        case fzy::FzyFieldType::Text:
            dict[key.c_str()] = texts[text++];
            break;
        case fzy::FzyFieldType::Int16:
            if (key != "endmark") {
                dict[key.c_str()] = static_cast<int>(field.number);
            }
            break;
        case fzy::FzyFieldType::Double:
            dict[key.c_str()] = field.number;
            break;
        case fzy::FzyFieldType::Date:
            dict[key.c_str()] = DateTime(field.number);
            break;
        }
    }
    return dict;
}

// A database's record of a column, under the same keys.
py::dict RecordDict(const host::CriterionRecord& record) {
    py::dict dict;
    dict["entry"] = "number";
    dict["field"] = record.column;
    dict["kind"] = record.kind;
    dict["a"] = record.a;
    dict["b"] = record.b;
    dict["c"] = record.c;
    dict["d"] = record.d;
    dict["layer"] = record.table;
    dict["source_field"] = record.sourceField;
    dict["created"] =
        py::module_::import("datetime").attr("datetime").attr("fromisoformat")(record.created);
    dict["version"] = record.version;
    return dict;
}

// The metadata file's last live number entry of that output field, else its live record entry.
py::object ShapefileMeta(const fs::path& fzyPath, const std::string& field) {
    std::ifstream file(fzyPath, std::ios::binary);
    if (!file) {
        return py::none();
    }
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)),
                                          std::istreambuf_iterator<char>());
    if (static_cast<std::int64_t>(bytes.size()) < fzy::kSmallestOldFile) {
        return py::none();
    }
    const fzy::MemorySource memory(bytes);
    const fzy::FzyHeader header = fzy::ReadHeader(memory);
    const std::int16_t total = fzy::EntriesToWalk(header.RecordCount, header.NumberCount);
    py::object number = py::none();
    py::object record = py::none();
    std::int64_t position = fzy::kHeaderSize;
    for (std::int16_t i = 0; i < total; ++i) {
        fzy::ByteReader reader(memory, position);
        const fzy::FzyEntryFrame frame = fzy::ReadFrame(reader);
        std::vector<fzy::FzyFieldRead> fields;
        std::vector<std::string> texts;
        const auto keep = [&](const fzy::FzyFieldRead& read) {
            if (!read.lengthOnly) {
                fields.push_back(read);
                if (read.type == fzy::FzyFieldType::Text) {
                    texts.push_back(*read.text);
                }
            }
            return true;
        };
        if (frame.EntryKind == fzy::kNumberEntryKind) {
            if (fzy::SameStoredName(field, fzy::ReadNumberBody(reader, keep).FieldName)) {
                number = EntryDict("number", fields, texts);
            }
        } else if (frame.EntryKind == fzy::kRecordEntryKind && record.is_none()) {
            if (fzy::SameStoredName(field, fzy::ReadRecordBody(reader, keep).FieldName)) {
                record = EntryDict("record", fields, texts);
            }
        }
        position += frame.Length;
    }
    return number.is_none() ? record : number;
}

// What the metadata window shows for a field; None when nothing is recorded. Only reads.
py::object Meta(const py::object& sourcePath, const std::string& field,
                const std::optional<std::string>& layerName) {
    const std::string source = PathText(sourcePath);
    try {
        if (source::IsGeoPackageSource(source) || source::IsPostgresSource(source)) {
            source::Application app;
            const auto layer = OpenLayer(app, source, layerName);
            const auto records =
                std::dynamic_pointer_cast<host::ICriterionRecords>(layer->FeatureClass());
            const auto record = records ? records->Record(field) : std::nullopt;
            return record ? py::object(RecordDict(*record)) : py::none();
        }
        // A shapefile's one layer is known from its name: the data need not be opened.
        const std::string base = source::SourceLayers(source).front();
        if (layerName && *layerName != base) {
            throw PythonError{g_error, Message(kTextNoSuchLayer, "no layer '%1' in %2 (layers: %3)",
                                               {*layerName, source, base})};
        }
        return ShapefileMeta(fs::path(source).parent_path() / (base + ".fzy"), field);
    } catch (const Error& error) {
        throw FromError(error);
    }
}

void SetLanguage(const std::string& code) {
    const std::lock_guard lock(g_languageMutex);
    if (!Language().Switch(code, false)) {
        std::string available;
        for (const std::string& item : Language().Languages()) {
            available += (available.empty() ? "" : ", ") + item;
        }
        throw py::value_error("unknown language '" + code + "' (available: " + available + ")");
    }
}

} // namespace
} // namespace quorel::python

PYBIND11_MODULE(quorel, m) {
    using namespace quorel::python;
    m.doc() = R"(Fuzzy classification criteria on polygon layers.

A criterion turns a numeric field into a degree of membership between 0 and 1 in one of five
shapes (kind 1 singleton, 2 triangle, 3 rising ramp, 4 falling ramp, 5 trapezoid) with break
points a <= b <= c <= d. The degrees are those of the command line "quorel", bit for bit.

Parameters are read as the definition dialog reads its boxes: None is an empty box (a then
counts 0, b, c and d -9999), a text is read with either decimal mark, a number as it is.)";

    g_error = PyErr_NewExceptionWithDoc("quorel.Error",
                                        "A reported failure, with the command line's message.",
                                        PyExc_Exception, nullptr);
    g_refused = PyErr_NewExceptionWithDoc(
        "quorel.RefusedError",
        "A check refused the work before anything changed (parameters out of order, no such "
        "numeric field, an output name the table cannot hold...).",
        g_error, nullptr);
    m.add_object("Error", py::handle(g_error));
    m.add_object("RefusedError", py::handle(g_refused));
    py::register_exception_translator([](std::exception_ptr caught) {
        try {
            if (caught) {
                std::rethrow_exception(caught);
            }
        } catch (const PythonError& e) {
            PyErr_SetString(e.type, e.message.c_str());
        }
    });

    m.def("membership", &MembershipOf, py::arg("kind"), py::arg("a") = py::none(),
          py::arg("b") = py::none(), py::arg("c") = py::none(), py::arg("d") = py::none(),
          py::kw_only(), py::arg("values"),
          R"(Degrees of membership of values, as the criterion's script computes them.

values: an array of any shape, read as float64; NaN stands for Null. Returns a new float64
array of the same shape: NaN where the script leaves the degree Null (every shape but the
singleton on Null, and kind 0).

Raises RefusedError (the dialog's refusal) for parameters out of order, ZeroDivisionError
where the script divides by zero (equal neighbouring break points of a slope).

    >>> quorel.membership(5, 2, 5, 15, 25, values=numpy.array([1.0, 3.5, 10.0, 20.0]))
    array([0. , 0.5, 1. , 0.5]))");

    m.def("script", &ScriptOf, py::arg("kind"), py::arg("a").none(true), py::arg("b").none(true),
          py::arg("c").none(true), py::arg("d").none(true), py::arg("field"),
          R"(The field calculator's script of a criterion on field (lines joined by CR LF).

None for kind 0, which has no script. Raises RefusedError for parameters out of order.)");

    m.def("run", &Run, py::arg("source"), py::arg("field"), py::arg("kind"),
          py::arg("a") = py::none(), py::arg("b") = py::none(), py::arg("c") = py::none(),
          py::arg("d") = py::none(), py::kw_only(), py::arg("layer") = py::none(),
          py::arg("out") = py::none(), py::arg("progress") = py::none(),
          R"(Computes a criterion on a layer in place, as "quorel run" does.

Adds a double field to the layer's table and fills it with each feature's degree of field,
then records the criterion: in the metadata file (NAME.fzy) beside a shapefile, in a
GeoPackage's metadata tables. A shapefile's table is replaced whole, safely; a GeoPackage's run
is one transaction. Runs on one source take turns.

source:   a shapefile (.shp) or a GeoPackage (.gpkg), a str or an os.PathLike; or a
          PostgreSQL database in GDAL's form, 'PG:"dbname=... host=..."'.
field:    the numeric field to classify.
kind:     0 to 5; a, b, c, d: the break points (see the module's help).
layer:    the layer of the source: a GeoPackage's table (needed when it has several); a
          shapefile's one layer is named after the file.
out:      the output field's name; by default "FZY_" and field, cut and numbered to fit.
progress: called with the fraction done (0 to 1) while the table is written. If it raises,
          the run stops and the exception is raised again: a shapefile keeps the field, Null,
          a GeoPackage is left as it was; no criterion is recorded.

Returns the name of the field added. Raises RefusedError when a check refused the run before
anything changed, Error on a reported failure (the command line's messages).)");

    m.def("aggregate", &Aggregate, py::arg("source"), py::arg("fields"), py::arg("op"),
          py::kw_only(), py::arg("gamma") = py::none(), py::arg("weights") = py::none(),
          py::arg("layer") = py::none(), py::arg("out") = py::none(),
          py::arg("progress") = py::none(),
          R"(Combines degree fields into a new field in place, as "quorel aggregate" does.

Adds a double field to the layer's table and fills it with each feature's combination of the
fields' degrees, then records the aggregation (in NAME.fzy.json beside a shapefile, in a
database beside its criterion records). Written as safely as run writes.

source:   a shapefile (.shp), a GeoPackage (.gpkg) or a PG: connection, a str or an os.PathLike.
fields:   two or more numeric fields, every value in [0, 1] (Null is allowed), in order.
op:       "and" (minimum), "or" (maximum), "product", "sum" (1 - the product of the 1 - degrees),
          "gamma" (sum ** gamma * product ** (1 - gamma)), "mean" (weighted) or "owa" (the
          degrees from largest to smallest, weighted in that order).
gamma:    gamma's parameter, in [0, 1]; for op "gamma" only.
weights:  for "mean" and "owa" only: one weight > 0 per field.
layer:    the layer of the source; a shapefile's one layer is named after the file.
out:      the output field's name; by default "FZY_AGG", numbered when the table has it.
progress: called with the fraction done (0 to 1); if it raises, the run stops and the
          exception is raised again (a shapefile keeps the field, Null; nothing is recorded).

A Null degree gives Null. Returns the name of the field added. Raises ValueError for an unknown
operator or a gamma missing or not taken (the command line's wrong usage), RefusedError when a
check refused the run before anything changed (values out of [0, 1], weights that do not fit,
a name in use...), Error on a reported failure.)");

    m.def("stats", &Stats, py::arg("source"), py::arg("field"), py::kw_only(),
          py::arg("layer") = py::none(),
          R"(The statistics of a numeric field, as "quorel stats" shows them.

Returns a dict: minimum, maximum, mean, standard_deviation, count (non-Null values),
distinct_count, and distinct_values (ascending) or None when there are more than 100.
Raises Error for a missing source or field.)");

    m.def("meta", &Meta, py::arg("source"), py::arg("field"), py::kw_only(),
          py::arg("layer") = py::none(),
          R"(What is recorded about an output field, as "quorel meta" shows it; only read.

Returns None when nothing is recorded, else a dict: entry ("number" for a criterion), field,
kind, a, b, c, d, layer and created (a datetime); a shapefile's metadata file (.fzy) adds
alias and folder, a database (GeoPackage, PostGIS) source_field and version. A record entry of the
metadata file (entry "record") has the entry's own fields, lower-cased.)");

    m.def("set_language", &SetLanguage, py::arg("code"),
          R"(Switches the messages to another language of the text database ("fr", "en"),
for this process only. By default they are in the language remembered in the user's settings.)");
}
