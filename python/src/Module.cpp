// The extension q9db._native: the database, its batch decoder and frame
// encoder, and the capture reader, as the package's Python modules use
// them. Work on many frames runs without Python's lock; columns come back
// as numpy arrays that take the vectors over, nothing copied.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstring>
#include <system_error>

#include "BatchDecoder.h"
#include "CaptureReader.h"
#include "FrameEncoder.h"
#include "NativeDatabase.h"
#include "SignalFacts.h"

namespace py = pybind11;

namespace q9py {
namespace {

template <typename T>
using InputArray = py::array_t<T, py::array::c_style | py::array::forcecast>;

// A numpy array over the vector's memory, which the array then owns.
template <typename T>
py::array_t<T> handOver(std::vector<T>&& values, std::vector<py::ssize_t> shape = {}) {
  auto* owned = new std::vector<T>(std::move(values));
  py::capsule owner(owned, [](void* p) { delete static_cast<std::vector<T>*>(p); });
  if (shape.empty()) shape = {py::ssize_t(owned->size())};
  return py::array_t<T>(shape, owned->data(), owner);
}

// The coding of a signal in a word: unsigned, signed (two's complement),
// ones_complement, sign_magnitude, float, bcd, packed_bcd, text.
const char* codingName(uint32_t encoding) {
  const bool sign = encoding & Q9_ENCODING_SIGNED;
  switch (encoding & Q9_ENCODING_TYPEMASK) {
    case Q9_ENCODING_DIRECT: return sign ? "sign_magnitude" : "unsigned";
    case Q9_ENCODING_1COMPL: return "ones_complement";
    case Q9_ENCODING_2COMPL: return "signed";
    case Q9_ENCODING_IEEE: return "float";
    case Q9_ENCODING_UNPACKED_BCD: return "bcd";
    case Q9_ENCODING_PACKED_BCD: return "packed_bcd";
    case Q9_ENCODING_ASCII: return "text";
    default: return "invalid";
  }
}

py::object optionalNumber(const std::optional<double>& value) {
  return value ? py::object(py::float_(*value)) : py::object(py::none());
}

class PyDatabase {
 public:
  PyDatabase() : decoder_(native_.catalog()) {
    if (!native_.db()) throw std::bad_alloc();
  }

  // (True, "", reports) or (False, message, reports): the Python side
  // raises with the reports at hand.
  py::tuple load(const std::string& path, const std::string& bus) {
    std::vector<FileReport> reports;
    std::string failure;
    {
      py::gil_scoped_release unlocked;
      std::lock_guard<std::mutex> lock(native_.mutex());
      try {
        reports = native_.load(path, bus);
      } catch (ImportFailure& e) {
        failure = e.what();
        reports = std::move(e.reports);
      }
    }
    py::list list;
    for (const FileReport& r : reports) list.append(py::make_tuple(r.first, r.second, r.text));
    return py::make_tuple(failure.empty(), failure, list);
  }

  py::list channels() {
    std::lock_guard<std::mutex> lock(native_.mutex());
    py::list list;
    for (const ChannelEntry& c : native_.catalog().channels()) list.append(py::make_tuple(c.name, c.clusterType));
    return list;
  }

  py::list frames() {
    std::lock_guard<std::mutex> lock(native_.mutex());
    py::list list;
    for (const FrameEntry& f : native_.catalog().frames()) {
      py::dict frame;
      frame["name"] = f.name;
      frame["identifier"] = f.identifier;
      frame["mask"] = f.mask;
      frame["flags"] = f.flags;
      frame["length"] = f.length;
      frame["cycle_time"] = f.cycleMilliseconds;
      frame["channel"] = f.channelIndex;
      frame["sender"] = senderOf(f.triggering);
      frame["comment"] = commentOf(f.frame);
      py::list signals;
      for (size_t i = 0; i < f.signals.size(); ++i) signals.append(signal(f.signals[i], f.slots[i]));
      frame["signals"] = signals;
      list.append(frame);
    }
    return list;
  }

  // The slots so far: their frames and channels as arrays, their signals'
  // names and units as lists.
  py::tuple slots() {
    std::lock_guard<std::mutex> lock(native_.mutex());
    const std::vector<SlotEntry>& slots = native_.catalog().slots();
    std::vector<int32_t> frames, channels;
    py::list names, units;
    for (const SlotEntry& s : slots) {
      frames.push_back(s.frame);
      channels.push_back(int32_t(s.channel));
      names.append(s.name);
      units.append(s.unit);
    }
    return py::make_tuple(handOver(std::move(frames)), handOver(std::move(channels)), names, units);
  }

  py::list texts() {
    std::lock_guard<std::mutex> lock(native_.mutex());
    py::list list;
    for (const std::string& t : native_.catalog().texts()) list.append(t);
    return list;
  }

  std::vector<uint32_t> busChannels(const std::string& bus, bool canOnly) {
    std::lock_guard<std::mutex> lock(native_.mutex());
    return native_.channelsFor(bus, canOnly);
  }

  py::tuple decode(const InputArray<uint32_t>& identifiers, const InputArray<uint32_t>& flags,
                   const InputArray<uint8_t>& lengths, const InputArray<uint8_t>& payloads,
                   const std::optional<InputArray<int32_t>>& buses, const std::vector<std::string>& busNames,
                   bool canOnly, bool withRaw) {
    const auto n = size_t(identifiers.size());
    if (size_t(flags.size()) != n || size_t(lengths.size()) != n || (buses && size_t(buses->size()) != n))
      throw std::invalid_argument("identifiers, flags, lengths and buses must be of one length");
    if (payloads.ndim() != 2 || size_t(payloads.shape(0)) != n || size_t(payloads.shape(1)) != kPayloadStride)
      throw std::invalid_argument("payloads must be an array of " + std::to_string(n) + " rows of 64 bytes");
    if (busNames.empty()) throw std::invalid_argument("a batch needs at least one bus name");
    MessageBatch batch;
    batch.count = n;
    batch.identifiers = identifiers.data();
    batch.flags = flags.data();
    batch.lengths = lengths.data();
    batch.payloads = payloads.data();
    batch.buses = buses ? buses->data() : nullptr;
    for (size_t i = 0; i < n; ++i)
      if (batch.lengths[i] > kPayloadStride)
        throw std::invalid_argument("message " + std::to_string(i) + " has a length above 64");
    DecodedColumns out;
    {
      py::gil_scoped_release unlocked;
      std::lock_guard<std::mutex> lock(native_.mutex());
      std::vector<std::vector<uint32_t>> channelsOfBus;
      for (const std::string& name : busNames) channelsOfBus.push_back(native_.channelsFor(name, canOnly));
      decoder_.decode(batch, channelsOfBus, withRaw, out);
    }
    py::object raw = withRaw ? py::object(handOver(std::move(out.raw))) : py::object(py::none());
    return py::make_tuple(handOver(std::move(out.message)), handOver(std::move(out.slot)),
                          handOver(std::move(out.value)), handOver(std::move(out.text)), raw,
                          handOver(std::move(out.outcome)), handOver(std::move(out.frame)));
  }

  py::bytes encode(size_t frame, const py::dict& values, bool checkRange, bool raw) {
    std::unordered_map<std::string, SignalInput> inputs;
    for (const auto& item : values) {
      const std::string name = py::str(item.first);
      SignalInput input;
      py::handle value = item.second;
      if (py::isinstance<py::str>(value)) {
        input.kind = SignalInput::Text;
        input.text = value.cast<std::string>();
      } else if (py::isinstance<py::bool_>(value) || py::hasattr(value, "__index__")) {
        py::int_ integer = py::reinterpret_steal<py::int_>(PyNumber_Index(value.ptr()));
        if (!integer) throw py::error_already_set();
        int overflow = 0;
        input.integer = PyLong_AsLongLongAndOverflow(integer.ptr(), &overflow);
        input.kind = overflow ? SignalInput::Number : SignalInput::Integer;
        input.number = py::float_(integer).cast<double>();
      } else if (py::hasattr(value, "__float__")) {
        input.number = PyFloat_AsDouble(value.ptr());
        if (input.number == -1.0 && PyErr_Occurred()) throw py::error_already_set();
      } else {
        throw py::type_error("the value of " + name + " must be a number or one of its value texts, not " +
                             std::string(py::str(value.get_type().attr("__name__"))));
      }
      inputs.emplace(name, std::move(input));
    }
    std::vector<uint8_t> payload;
    {
      py::gil_scoped_release unlocked;
      std::lock_guard<std::mutex> lock(native_.mutex());
      const std::vector<FrameEntry>& frames = native_.catalog().frames();
      if (frame >= frames.size()) throw std::out_of_range("no frame " + std::to_string(frame));
      payload = encodeFrame(native_.db(), frames[frame], inputs, EncodeOptions{checkRange, raw});
    }
    return py::bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
  }

 private:
  py::dict signal(const LaidSignal& laid, uint32_t slot) {
    const SignalFacts facts = signalFacts(native_.db(), laid.signal);
    py::dict s;
    s["name"] = facts.name;
    s["slot"] = slot;
    s["start"] = laid.start;
    s["length"] = laid.length;
    s["byte_order"] = laid.byteOrder == Q9_BYTEORDER_BIGENDIAN ? "big_endian" : "little_endian";
    s["is_signed"] = facts.isSigned;
    s["is_float"] = facts.isFloat;
    s["is_text"] = facts.isText;
    s["coding"] = codingName(facts.encoding);
    s["scale"] = facts.scale;
    s["offset"] = facts.offset;
    s["minimum"] = optionalNumber(facts.minimum);
    s["maximum"] = optionalNumber(facts.maximum);
    s["initial"] = optionalNumber(facts.initial);
    s["unit"] = facts.unit;
    s["choices"] = facts.choices;
    s["comment"] = facts.comment;
    s["is_multiplexer"] = laid.isSwitch;
    s["multiplexer_signal"] = laid.switchSignal ? py::object(py::str(signalFacts(native_.db(), laid.switchSignal).name))
                                                : py::object(py::none());
    s["multiplexer_ids"] = laid.switchCodes;
    return s;
  }

  NativeDatabase native_;
  BatchDecoder decoder_;
};

class PyCaptureReader {
 public:
  PyCaptureReader(const std::string& path, uint64_t begin, std::optional<uint64_t> end)
      : reader_(path, begin, end.value_or(CaptureReader::kToTheEnd)) {}

  // A dict of columns, empty ones at the end.
  py::dict read(size_t most, bool stopAtMalformed) {
    CaptureBatch batch;
    {
      py::gil_scoped_release unlocked;
      reader_.next(most, batch, stopAtMalformed);
    }
    py::dict columns;
    const auto n = py::ssize_t(batch.count);
    columns["timestamp"] = handOver(std::move(batch.timestamps));
    columns["bus"] = handOver(std::move(batch.buses));
    columns["identifier"] = handOver(std::move(batch.identifiers));
    columns["flags"] = handOver(std::move(batch.flags));
    columns["length"] = handOver(std::move(batch.lengths));
    columns["payload"] = handOver(std::move(batch.payloads), {n, py::ssize_t(kPayloadStride)});
    return columns;
  }

  const CaptureReader& reader() const { return reader_; }

 private:
  CaptureReader reader_;
};

}  // namespace
}  // namespace q9py

PYBIND11_MODULE(_native, m) {
  using namespace q9py;
  m.doc() = "The native part of q9db: import, batch decoding, encoding, capture reading.";

  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const std::system_error& e) {
      // OSError(errno, text, file) becomes FileNotFoundError and the like.
      const int code = e.code().value();
      const std::string what = e.what();
      const std::string file = what.substr(0, what.find(':'));
      py::object error = py::module_::import("builtins").attr("OSError")(code, std::strerror(code), file);
      PyErr_SetObject(error.get_type().ptr(), error.ptr());
    }
  });

  m.attr("FLAG_EXTENDED") = Q9_FLAG_CANEXTENDED;
  m.attr("FLAG_FD") = Q9_FLAG_CANFD_FRAME;
  m.attr("FLAG_BITRATE_SWITCH") = Q9_FLAG_CANFD_FASTDATA;
  m.attr("FLAG_ERROR_STATE") = Q9_FLAG_CANFD_ERRORSTATEIND;
  m.attr("FLAGMASK_FRAMETYPE") = Q9_FLAGMASK_CAN_FRAMETYPE;
  m.attr("FLAG_EITHER_TYPE") = Q9_FLAG_CANSTD_OR_EXT;
  m.attr("CLUSTER_CAN") = Q9_CLUSTERTYPE_CAN;
  m.attr("CLUSTER_LIN") = Q9_CLUSTERTYPE_LIN;
  m.attr("CLUSTER_FLEXRAY") = Q9_CLUSTERTYPE_FLEXRAY;
  m.attr("PAYLOAD_STRIDE") = kPayloadStride;
  m.attr("DECODED") = int(kDecoded);
  m.attr("UNKNOWN") = int(kUnknown);
  m.attr("LENGTH_MISMATCH") = int(kLengthMismatch);
  m.attr("LOGGED_AS_FD") = int(kLoggedAsFd);
  m.attr("LOGGED_AS_CLASSIC") = int(kLoggedAsClassic);
  m.attr("IDENTIFIER_TYPE") = int(kIdentifierType);
  m.attr("UNBOUND_BUS") = int(kUnboundBus);

  py::class_<PyDatabase>(m, "Database")
      .def(py::init<>())
      .def("load", &PyDatabase::load, py::arg("path"), py::arg("bus"))
      .def("channels", &PyDatabase::channels)
      .def("frames", &PyDatabase::frames)
      .def("slots", &PyDatabase::slots)
      .def("texts", &PyDatabase::texts)
      .def("bus_channels", &PyDatabase::busChannels, py::arg("bus"), py::arg("can_only"))
      .def("decode", &PyDatabase::decode, py::arg("identifiers"), py::arg("flags"), py::arg("lengths"),
           py::arg("payloads"), py::arg("buses"), py::arg("bus_names"), py::arg("can_only"), py::arg("with_raw"))
      .def("encode", &PyDatabase::encode, py::arg("frame"), py::arg("values"), py::arg("check_range"),
           py::arg("raw"));

  py::class_<PyCaptureReader>(m, "CaptureReader")
      .def(py::init<const std::string&, uint64_t, std::optional<uint64_t>>(), py::arg("path"), py::arg("begin") = 0,
           py::arg("end") = py::none())
      .def("read", &PyCaptureReader::read, py::arg("most"), py::arg("stop_at_malformed") = false)
      .def_property_readonly("buses", [](const PyCaptureReader& r) { return r.reader().buses(); })
      .def_property_readonly("lines", [](const PyCaptureReader& r) { return r.reader().lines(); })
      .def_property_readonly("remote_or_error_frames",
                             [](const PyCaptureReader& r) { return r.reader().remoteOrErrorFrames(); })
      .def_property_readonly("malformed_count", [](const PyCaptureReader& r) { return r.reader().malformedCount(); })
      .def_property_readonly("malformed", [](const PyCaptureReader& r) {
        py::list list;
        for (const MalformedLine& l : r.reader().malformed())
          list.append(py::make_tuple(l.line, l.offset, l.problem, l.text));
        return list;
      });
}
