#pragma once

// A worker that answers remote calls over its standard streams until they are closed: "add" (integers), "ask" (what its
// parent answers to "double"), "fetch" (a name and a path) and "give" (the same), "die".
int answerRemoteCalls();
