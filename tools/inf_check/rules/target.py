"""Syntax that the oldest system on which a package installs does not know."""

from .files import DRIVER_STORE, destination_of

# The first build that knows a directive of a service's section (learn.microsoft.com: "INF AddService directive").
SERVICE = {"servicesidtype": 19041, "delayedautostart": 19041, "addtrigger": 19041, "failureactions": 22621,
           "bootflags": 25398}
DRIVER_STORE_BUILD = 16299  # "Run from driver store"
FILTERS_BUILD = 18362       # "INF AddFilter directive"


def newer_than_target(package, report, path):
    for visit in package.visited:
        if visit.model is None:
            continue
        for line, what, build in needs(package, visit):
            if visit.model.version < (10, 0, build):
                oldest = ".".join(map(str, visit.model.version))
                report(line, 1199, f"{what} is known since system 10.0.{build}; the package installs on {oldest} too")


def needs(package, visit):
    if visit.kind == "service":
        for entry in visit.section.entries:
            if entry.name in SERVICE:
                yield entry.line, entry.key, SERVICE[entry.name]
    elif visit.kind == "filters":
        yield visit.section.line, "a section .Filters", FILTERS_BUILD
    elif visit.kind == "files":
        where = destination_of(package, visit.section)
        if where and where.value() == DRIVER_STORE:
            yield where.line, "running from the driver store (13)", DRIVER_STORE_BUILD


RULES = (newer_than_target,)
