// SPDX-License-Identifier: Apache-2.0
// The accessors of every property of a configuration that can be absent.
#ifndef KFA_TESTS_ENVIRONMENT_PROPERTIES_H
#define KFA_TESTS_ENVIRONMENT_PROPERTIES_H

#include <boost/preprocessor/cat.hpp>
#include <boost/preprocessor/seq/for_each.hpp>
#include <boost/preprocessor/stringize.hpp>
#include <boost/preprocessor/variadic/to_seq.hpp>

#include <KFAFunctionality/environment/KFAEnvConfig.h>

#define KFA_VISIT(r, visit, Name)                                              \
  visit(BOOST_PP_STRINGIZE(Name), &KFA::KFAEnvConfig::BOOST_PP_CAT(get, Name), \
                           &KFA::KFAEnvConfig::BOOST_PP_CAT(set, Name));
#define KFA_VISIT_EACH(visit, ...) \
  BOOST_PP_SEQ_FOR_EACH(KFA_VISIT, visit, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))

// Calls visit(name, getter, setter), in the order in which examples/messages/venvconfig.xml has their elements.
template <class Visit>
void forEachProperty(const Visit& visit) {
  KFA_VISIT_EACH(visit, VERootVar, VEPrivateVar, OnBoot, Templates, OfflineManagement, OsTemplate,
                 Distribution, Capabilities, IPTables, ConfigCustomized, ClassID, VEType, OfflineServices,
                 WinsServers, NetVEths, TSLicenseServers, TSMode, UUID, AllowReboot, RateBound, RatesList,
                 SLMMode, OriginSample, Sample, ServerRoles, Name, Description, Hostname, Addresses,
                 Nameservers, SearchDomains, Architecture, OS, Type, QoSes)
}

#endif
