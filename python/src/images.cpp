// SPDX-License-Identifier: Apache-2.0
// Images, manifests and what is trusted.
#include "camera.h"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

namespace nyxus::python {

namespace {

using engine::Firmware;
using engine::ImageFacts;
using engine::Images;
using engine::Mfi;

/// What an image has of itself and its like.
template <typename Image, typename Class>
void add_loading(Class& image)
{
    image
        .def(py::init([](const py::buffer& data, const std::string& name) {
                 return value_of(Image::from(bytes_of(data), name));
             }),
             py::arg("data"), py::arg("name") = "the image")
        .def_static(
            "load",
            [](const std::filesystem::path& path) {
                return blocking([&] { return Image::load(path.string()); });
            },
            py::arg("path"))
        .def_property_readonly("data", [](const Image& self) { return to_bytes(self.bytes()); })
        .def_property_readonly("digest", &Image::digest)
        .def("__len__", [](const Image& self) { return self.bytes().size(); });
}

void add_facts(py::module_& module)
{
    using engine::ImageKind;
    using engine::MfiFacts;
    using engine::MfiPart;
    py::class_<ImageKind>(module, "ImageKind")
        .def_readonly("name", &ImageKind::name)
        .def_readonly("bytes", &ImageKind::bytes)
        .def_readonly("version", &ImageKind::version)
        .def_readonly("problem", &ImageKind::problem);
    py::class_<MfiPart>(module, "MfiPart")
        .def_readonly("name", &MfiPart::name)
        .def_readonly("address", &MfiPart::address)
        .def_readonly("size", &MfiPart::size);
    py::class_<MfiFacts>(module, "MfiFacts")
        .def_readonly("bytes", &MfiFacts::bytes)
        .def_readonly("serial", &MfiFacts::serial)
        .def_readonly("parts", &MfiFacts::parts);
    py::class_<ImageFacts>(module, "ImageFacts")
        .def_readonly("contents", &ImageFacts::contents)
        .def_readonly("bytes", &ImageFacts::bytes)
        .def_readonly("sha256", &ImageFacts::sha256)
        .def_readonly("firmware", &ImageFacts::firmware)
        .def_readonly("kind", &ImageFacts::kind)
        .def_readonly("chips", &ImageFacts::chips)
        .def_readonly("rom_bytes", &ImageFacts::rom_bytes)
        .def_readonly("larch_rom_bytes", &ImageFacts::larch_rom_bytes)
        .def_readonly("firmware_end", &ImageFacts::firmware_end)
        .def_readonly("mfi", &ImageFacts::mfi);
    module.def(
        "inspect_image",
        [](const std::filesystem::path& path) {
            return blocking([&] { return engine::inspect_image(path.string()); });
        },
        py::arg("path"));
}

void add_manifests(py::module_& module)
{
    using engine::AcceptedManifest;
    using engine::ChipImages;
    using engine::Manifest;
    using engine::ManifestEntry;
    using engine::Signature;
    using engine::Trust;
    using engine::TrustFolders;

    py::class_<ManifestEntry>(module, "ManifestEntry")
        .def_readonly("chip", &ManifestEntry::chip)
        .def_readonly("image", &ManifestEntry::image)
        .def_readonly("sha256", &ManifestEntry::sha256)
        .def_readonly("reports", &ManifestEntry::reports)
        .def_readonly("mfi", &ManifestEntry::mfi)
        .def_readonly("mfi_sha256", &ManifestEntry::mfi_sha256);
    py::class_<Signature>(module, "Signature")
        .def_readonly("key", &Signature::key)
        .def_readonly("comment", &Signature::comment);
    py::class_<TrustFolders>(module, "TrustFolders")
        .def(py::init([](std::filesystem::path system, std::filesystem::path user,
                         std::filesystem::path state) {
                 return TrustFolders{std::move(system), std::move(user), std::move(state)};
             }),
             py::arg("system"), py::arg("user"), py::arg("state"))
        .def_static("usual", &TrustFolders::usual)
        .def_readonly("system", &TrustFolders::system)
        .def_readonly("user", &TrustFolders::user)
        .def_readonly("state", &TrustFolders::state);
    py::class_<Trust>(module, "Trust")
        .def_property_readonly("needs_signature", &Trust::needs_signature)
        .def_readonly("allow_unsigned", &Trust::allow_unsigned)
        .def(
            "check_bare_image",
            [](const Trust& self, const std::filesystem::path& file) {
                value_of(self.check_bare_image(file.string()));
            },
            py::arg("file"));
    py::class_<AcceptedManifest>(module, "Manifest")
        .def_readonly("product", &AcceptedManifest::product)
        .def_readonly("version", &AcceptedManifest::version)
        .def_readonly("firmware", &AcceptedManifest::firmware)
        .def_readonly("folder", &AcceptedManifest::folder)
        .def_readonly("signature", &AcceptedManifest::signature)
        .def_readonly("unsigned_because", &AcceptedManifest::unsigned_because)
        .def("load_images",
             [](const AcceptedManifest& self) {
                 return blocking([&] { return engine::load_images(self); });
             })
        .def(
            "check_newest",
            [](const AcceptedManifest& self, const std::optional<TrustFolders>& folders) {
                blocking([&] {
                    return engine::check_newest(self, folders.value_or(TrustFolders::usual()));
                });
            },
            py::arg("folders") = py::none())
        .def(
            "remember",
            [](const AcceptedManifest& self, const std::optional<TrustFolders>& folders) {
                blocking([&] {
                    return engine::remember(self, folders.value_or(TrustFolders::usual()));
                });
            },
            py::arg("folders") = py::none());
    py::class_<ChipImages>(module, "ChipImages")
        .def(py::init([](Images images, std::string chip) {
                 return ChipImages{std::move(chip), std::move(images)};
             }),
             py::arg("images"), py::arg("chip") = "")
        .def_readonly("chip", &ChipImages::chip)
        .def_readonly("images", &ChipImages::images);
    module.def(
        "find_trust",
        [](const std::optional<TrustFolders>& folders) {
            return blocking(
                [&] { return engine::find_trust(folders.value_or(TrustFolders::usual())); });
        },
        py::arg("folders") = py::none());
    module.def(
        "load_manifest",
        [](const std::filesystem::path& path, const Trust& trust) {
            return blocking([&] { return engine::load_manifest(path.string(), trust); });
        },
        py::arg("path"), py::arg("trust"));
}

} // namespace

void add_images(py::module_& module)
{
    py::class_<Firmware> firmware(module, "Firmware");
    add_loading<Firmware>(firmware);
    py::class_<Mfi> mfi(module, "Mfi");
    add_loading<Mfi>(mfi);
    add_facts(module);
    firmware
        .def_static(
            "load_rom",
            [](const std::filesystem::path& path) {
                return blocking([&] { return Firmware::load_rom(path.string()); });
            },
            py::arg("path"))
        .def_property_readonly(
            "signature",
            [](const Firmware& self) {
                return to_bytes({reinterpret_cast<const uint8_t*>(self.signature().data()), 2})
                    .attr("decode")("latin-1");
            })
        .def_property_readonly("kind", &Firmware::kind)
        .def_property_readonly("version", &Firmware::version);
    mfi.def_property(
           "serial", &Mfi::serial,
           [](Mfi& self, const std::string& serial) { value_of(self.set_serial(serial)); })
        .def_property_readonly("is_for_one_camera", &Mfi::is_for_one_camera);
    py::class_<Images>(module, "Images")
        .def(py::init([](Firmware image, std::optional<Mfi> accessory, std::string reports) {
                 return Images{std::move(image), std::move(accessory), std::move(reports)};
             }),
             py::arg("firmware"), py::arg("mfi") = py::none(), py::arg("reports") = "")
        .def_readonly("firmware", &Images::firmware)
        .def_readonly("mfi", &Images::mfi)
        .def_readonly("reports", &Images::reports)
        .def_property_readonly("version", &Images::version);
    py::implicitly_convertible<Firmware, Images>();
    add_manifests(module);
    py::implicitly_convertible<Images, engine::ChipImages>();
}

} // namespace nyxus::python
