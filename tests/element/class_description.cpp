// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "config/properties.h"
#include "plugin/gstvantrel.h"
#include "tests/element/stage.h"

namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

std::string quoted(const char* text) {
  return text != nullptr ? '"' + std::string(text) + '"' : "NULL";
}

Lines plugin_lines() {
  const GstPluginDesc& plugin = gst_plugin_desc;
  return {"plugin " + std::to_string(plugin.major_version) + "." +
          std::to_string(plugin.minor_version) + " " + quoted(plugin.name) + " " +
          quoted(plugin.description) + " " + quoted(plugin.version) + " " + quoted(plugin.license) +
          " " + quoted(plugin.source) + " " + quoted(plugin.release_datetime)};
}

Lines element_lines(GstElementClass* klass) {
  std::string line = std::string("element ") + G_OBJECT_CLASS_NAME(klass);
  for (const char* key : {GST_ELEMENT_METADATA_LONGNAME, GST_ELEMENT_METADATA_KLASS,
                          GST_ELEMENT_METADATA_DESCRIPTION})
    line += " " + quoted(gst_element_class_get_metadata(klass, key));
  g_autoptr(GstElementFactory) factory = gst_element_factory_find("vantrel");
  if (factory == nullptr) return {line, "not registered"};
  return {line + " rank " +
          std::to_string(gst_plugin_feature_get_rank(GST_PLUGIN_FEATURE(factory)))};
}

Lines template_lines(GstElementClass* klass) {
  Lines lines;
  for (GList* i = gst_element_class_get_pad_template_list(klass); i != nullptr; i = i->next) {
    auto* pad = static_cast<GstPadTemplate*>(i->data);
    g_autofree gchar* caps = gst_caps_to_string(GST_PAD_TEMPLATE_CAPS(pad));
    lines.push_back(
        "template " + quoted(GST_PAD_TEMPLATE_NAME_TEMPLATE(pad)) +
        (GST_PAD_TEMPLATE_DIRECTION(pad) == GST_PAD_SRC ? " source" : " sink") +
        (GST_PAD_TEMPLATE_PRESENCE(pad) == GST_PAD_ALWAYS ? " always " : " sometimes ") +
        quoted(caps));
  }
  return lines;
}

std::string range_of(GParamSpec* pspec) {
  const auto text = [](auto low, auto high, auto initial) {
    return " " + std::to_string(low) + ".." + std::to_string(high) + " = " +
           std::to_string(initial);
  };
  if (const auto* number = G_IS_PARAM_SPEC_UINT(pspec) ? G_PARAM_SPEC_UINT(pspec) : nullptr)
    return text(number->minimum, number->maximum, number->default_value);
  if (const auto* number = G_IS_PARAM_SPEC_INT(pspec) ? G_PARAM_SPEC_INT(pspec) : nullptr)
    return text(number->minimum, number->maximum, number->default_value);
  if (G_IS_PARAM_SPEC_STRING(pspec))
    return " = " + quoted(G_PARAM_SPEC_STRING(pspec)->default_value);
  if (G_IS_PARAM_SPEC_BOOLEAN(pspec))
    return G_PARAM_SPEC_BOOLEAN(pspec)->default_value ? " = TRUE" : " = FALSE";
  return "";
}

std::string property_line(GParamSpec* pspec) {
  return "property " + std::to_string(pspec->param_id) + " " +
         vantrel_get_property_name(pspec->param_id) + " " + quoted(pspec->name) + " " +
         quoted(g_param_spec_get_nick(pspec)) + " " + quoted(g_param_spec_get_blurb(pspec)) + " " +
         g_type_name(pspec->value_type) + range_of(pspec) + " flags " +
         std::to_string(pspec->flags);
}

Lines property_lines(GObjectClass* klass) {
  guint count = 0;
  g_autofree GParamSpec** pspecs = g_object_class_list_properties(klass, &count);
  std::vector<GParamSpec*> own(pspecs, pspecs + count);
  std::erase_if(own, [](GParamSpec* p) { return p->owner_type != gst_vantrel_get_type(); });
  std::ranges::sort(own, {}, &GParamSpec::param_id);
  Lines lines;
  for (GParamSpec* pspec : own) lines.push_back(property_line(pspec));
  return lines;
}

Lines signal_lines() {
  Lines lines;
  for (const guint id : gst_vantrel_signals) {
    GSignalQuery signal;
    g_signal_query(id, &signal);
    std::string line = "signal " + quoted(signal.signal_name) + " flags " +
                       std::to_string(signal.signal_flags) + " " + g_type_name(signal.return_type);
    for (guint i = 0; i < signal.n_params; i++)
      line += std::string(i == 0 ? ": " : ", ") + g_type_name(signal.param_types[i]);
    lines.push_back(line);
  }
  return lines;
}

}  // namespace

Lines describe_class() {
  auto* klass = static_cast<GObjectClass*>(g_type_class_ref(gst_vantrel_get_type()));
  auto* element_class = reinterpret_cast<GstElementClass*>(klass);
  Lines lines = plugin_lines();
  for (const Lines& more : {element_lines(element_class), template_lines(element_class),
                            property_lines(klass), signal_lines()})
    lines.insert(lines.end(), more.begin(), more.end());
  g_type_class_unref(klass);
  return lines;
}

}  // namespace vantrel::testing
