// Within one command of the facade the meeting client's location is looked up once: the status
// check, the version gate and the choice of transport each ask for it, and the later lookups of
// the same command answer the same path and write the same log lines without looking at the file
// system again. Scopes belong to a thread and nest; outside any scope every lookup is fresh, and
// every command starts afresh.
#pragma once

class ymClientLookupScope {
public:
    ymClientLookupScope();
    ~ymClientLookupScope();
    ymClientLookupScope(const ymClientLookupScope &) = delete;
    ymClientLookupScope &operator=(const ymClientLookupScope &) = delete;
};
