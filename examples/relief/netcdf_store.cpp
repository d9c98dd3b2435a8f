// SPDX-License-Identifier: Apache-2.0
#include "netcdf_store.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <limits>
#include <mutex>
#include <netcdf.h>
#include <stdexcept>
#include <vector>

namespace Relief {
namespace {

constexpr int kMaxRank = 4;

std::mutex& libraryMutex() {
    static std::mutex mutex;
    return mutex;
}

// A file that is open for reading.
class File {
  public:
    explicit File(std::string const& path) : path_(path) {
        if (int const status = nc_open(path.c_str(), NC_NOWRITE, &id_); status != NC_NOERR) {
            fail("cannot open '" + path + "': " + nc_strerror(status));
        }
    }
    ~File() { nc_close(id_); }
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    int id() const noexcept { return id_; }

    void check(int status) const {
        if (status != NC_NOERR) {
            fail("cannot read '" + path_ + "': " + nc_strerror(status));
        }
    }
    [[noreturn]] void fail(std::string const& text) const { throw std::runtime_error(text); }
    std::string const& path() const noexcept { return path_; }

  private:
    std::string path_;
    int id_ = -1;
};

std::vector<int> dimensionsOf(File const& file, int variable) {
    int rank = 0;
    file.check(nc_inq_varndims(file.id(), variable, &rank));
    std::vector<int> dimensions(static_cast<std::size_t>(rank));
    file.check(nc_inq_vardimid(file.id(), variable, dimensions.data()));
    return dimensions;
}

std::size_t lengthOf(File const& file, int dimension) {
    std::size_t length = 0;
    file.check(nc_inq_dimlen(file.id(), dimension, &length));
    return length;
}

bool isNumeric(File const& file, int variable) {
    nc_type type = NC_NAT;
    file.check(nc_inq_vartype(file.id(), variable, &type));
    return type >= NC_BYTE && type <= NC_UINT64 && type != NC_CHAR;
}

int variableNamed(File const& file, std::string const& name) {
    int variable = -1;
    if (nc_inq_varid(file.id(), name.c_str(), &variable) != NC_NOERR) {
        file.fail("there is no variable '" + name + "' in '" + file.path() + "'");
    }
    return variable;
}

int largestGrid(File const& file) {
    int count = 0;
    file.check(nc_inq_nvars(file.id(), &count));
    int best = -1;
    double most = 0;
    for (int variable = 0; variable < count; ++variable) {
        auto const dimensions = dimensionsOf(file, variable);
        if (dimensions.size() != 2 || !isNumeric(file, variable)) {
            continue;
        }
        double const samples =
            static_cast<double>(lengthOf(file, dimensions[0])) * static_cast<double>(lengthOf(file, dimensions[1]));
        if (samples > most) {
            most = samples;
            best = variable;
        }
    }
    if (best < 0) {
        file.fail("there is no grid (a variable of two axes) in '" + file.path() + "'");
    }
    return best;
}

std::string nameOf(File const& file, int variable) {
    std::array<char, NC_MAX_NAME + 1> name{};
    file.check(nc_inq_varname(file.id(), variable, name.data()));
    return name.data();
}

// The numbers of an attribute, none where it is absent or a text.
std::vector<double> numbersOf(File const& file, int variable, char const* attribute) {
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(file.id(), variable, attribute, &type, &length) != NC_NOERR || type == NC_CHAR) {
        return {};
    }
    std::vector<double> numbers(length);
    return nc_get_att_double(file.id(), variable, attribute, numbers.data()) == NC_NOERR ? numbers
                                                                                         : std::vector<double>();
}

std::string textOf(File const& file, int variable, char const* attribute) {
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(file.id(), variable, attribute, &type, &length) != NC_NOERR || type != NC_CHAR) {
        return {};
    }
    std::string text(length, '\0');
    file.check(nc_get_att_text(file.id(), variable, attribute, text.data()));
    return text.substr(0, text.find('\0'));
}

// The values that stand for "missing", as they look once converted to float.
std::vector<float> missingValues(File const& file, int variable) {
    auto numbers = numbersOf(file, variable, "missing_value");
    auto const fill = numbersOf(file, variable, _FillValue);
    numbers.insert(numbers.end(), fill.begin(), fill.end());
    nc_type type = NC_NAT;
    file.check(nc_inq_vartype(file.id(), variable, &type));
    // Single bytes have no default: all 256 values are data there.
    if (fill.empty() && (type == NC_FLOAT || type == NC_DOUBLE)) {
        numbers.push_back(NC_FILL_FLOAT);
    } else if (fill.empty() && (type == NC_SHORT || type == NC_INT)) {
        numbers.push_back(type == NC_SHORT ? NC_FILL_SHORT : NC_FILL_INT);
    }
    std::vector<float> values(numbers.size());
    std::transform(
        numbers.begin(), numbers.end(), values.begin(), [](double number) { return static_cast<float>(number); });
    return values;
}

bool coordinatesRise(File const& file, int dimension) {
    std::array<char, NC_MAX_NAME + 1> name{};
    file.check(nc_inq_dimname(file.id(), dimension, name.data()));
    int variable = -1;
    if (nc_inq_varid(file.id(), name.data(), &variable) != NC_NOERR || !isNumeric(file, variable) ||
        dimensionsOf(file, variable) != std::vector<int>{dimension}) {
        return false;
    }
    std::size_t const first = 0;
    std::size_t const last = lengthOf(file, dimension) - 1;
    double low = 0;
    double high = 0;
    file.check(nc_get_var1_double(file.id(), variable, &first, &low));
    file.check(nc_get_var1_double(file.id(), variable, &last, &high));
    return low < high;
}

}  // namespace

struct NetcdfStore::Variable {
    Variable(std::string const& path, std::string const& wanted);

    void readGeometry();
    void readValueRules();

    File file;
    int id = -1;
    std::string name;
    std::string unit;
    int rank = 0;
    Position size = Position::Filled(1);
    std::array<bool, kMaxRank> rises{};
    std::vector<float> missing;
    double scale = 1;
    double shift = 0;
};

NetcdfStore::Variable::Variable(std::string const& path, std::string const& wanted)
    : file(path), id(wanted.empty() ? largestGrid(file) : variableNamed(file, wanted)), name(nameOf(file, id)) {
    readGeometry();
    readValueRules();
}

void NetcdfStore::Variable::readGeometry() {
    auto const dimensions = dimensionsOf(file, id);
    std::string const self = "variable '" + name + "' of '" + file.path() + "' ";
    if (dimensions.empty() || dimensions.size() > kMaxRank || !isNumeric(file, id)) {
        file.fail(self + "is no array of numbers on one to four axes");
    }
    rank = static_cast<int>(dimensions.size());
    for (int axis = 0; axis < rank; ++axis) {
        int const dimension = dimensions[static_cast<std::size_t>(axis)];
        std::size_t const length = lengthOf(file, dimension);
        if (length == 0 || length > INT_MAX) {
            file.fail(self + (length == 0 ? "is empty" : "is too large"));
        }
        size[axis] = static_cast<int>(length);
        rises[static_cast<std::size_t>(axis)] = coordinatesRise(file, dimension);
    }
}

void NetcdfStore::Variable::readValueRules() {
    unit = textOf(file, id, "units");
    missing = missingValues(file, id);
    if (auto const factor = numbersOf(file, id, "scale_factor"); !factor.empty()) {
        scale = factor.front();
    }
    if (auto const offset = numbersOf(file, id, "add_offset"); !offset.empty()) {
        shift = offset.front();
    }
}

NetcdfStore::NetcdfStore(std::string const& path, std::string const& variable) {
    std::lock_guard const lock(libraryMutex());
    variable_ = std::make_unique<Variable const>(path, variable);
}

NetcdfStore::~NetcdfStore() {
    std::lock_guard const lock(libraryMutex());
    variable_.reset();
}

void NetcdfStore::read(Box const& box, void* memory) const {
    auto* const samples = static_cast<float*>(memory);
    std::array<std::size_t, kMaxRank> start{};
    std::array<std::size_t, kMaxRank> count{};
    for (int axis = 0; axis < kMaxRank; ++axis) {
        start[static_cast<std::size_t>(axis)] = static_cast<std::size_t>(box.min[axis]);
        count[static_cast<std::size_t>(axis)] = static_cast<std::size_t>(box.size(axis));
    }
    {
        std::lock_guard const lock(libraryMutex());
        int const status = nc_get_vara_float(variable_->file.id(), variable_->id, start.data(), count.data(), samples);
        // A number that float cannot hold has become an infinity; that is all there is to say about it.
        variable_->file.check(status == NC_ERANGE ? NC_NOERR : status);
    }
    auto const& missing = variable_->missing;
    bool const packed = variable_->scale != 1 || variable_->shift != 0;
    std::for_each(samples, samples + box.pointCount(), [&](float& sample) {
        if (std::find(missing.begin(), missing.end(), sample) != missing.end()) {
            sample = std::numeric_limits<float>::quiet_NaN();
        } else if (packed) {
            sample = static_cast<float>(sample * variable_->scale + variable_->shift);
        }
    });
}

Position NetcdfStore::size() const {
    return variable_->size;
}
std::string const& NetcdfStore::variable() const noexcept {
    return variable_->name;
}
std::string const& NetcdfStore::unit() const noexcept {
    return variable_->unit;
}
int NetcdfStore::rank() const noexcept {
    return variable_->rank;
}
bool NetcdfStore::risesAlong(int axis) const noexcept {
    return variable_->rises[static_cast<std::size_t>(axis)];
}

}  // namespace Relief
