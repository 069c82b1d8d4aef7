// event.js - the meaning of an event from the lab.

// Returns whether an event is a failure: a refused request, a request that reports a failure, or an answer without success.
export function failed(event) {
    if (event.tone === 'bad' || !event.exchange) {
        return event.tone === 'bad';
    }
    return event.to === 'cloud' ? /"transactionStatus":\s*"0"/.test(event.body ?? '')
        : !event.what.startsWith('200 ') || /"status":\s*0/.test(event.what);
}
