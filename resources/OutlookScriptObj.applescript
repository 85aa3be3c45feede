-- OutlookScriptObj: the agent's bridge to Microsoft Outlook for Mac, loaded through AppleScriptObjC
-- from the application bundle. The agent makes a fresh instance for every operation and sends it one
-- handler (two when it applies both default signatures one by one).
--
-- Signatures are created and read through Outlook's scripting dictionary. Outlook offers no scripting
-- for its default signatures, so the apply handlers drive the Signatures preferences window by GUI
-- scripting; that is why the agent needs the accessibility permission. The window stays open: the
-- user closes it, as the apply dialog says.

script OutlookScriptObj
	property parent : class "NSObject"

	-- The agent creates its default signatures under exactly these names.
	property newSignatureName : "Default New Email Signature"
	property replySignatureName : "Default Reply Forward Email Signature"
	property noSignature : "None"

	on getVersion()
		try
			tell application "Microsoft Outlook" to return (version as text)
		on error
			return ""
		end try
	end getVersion

	on getDefaultAccount()
		try
			tell application "Microsoft Outlook" to return (email address of default account) as text
		on error
			return ""
		end try
	end getDefaultAccount

	on getSignature:signatureName
		set signatureName to signatureName as text
		try
			tell application "Microsoft Outlook"
				if exists signature signatureName then return (content of signature signatureName) as text
			end tell
		end try
		return ""
	end getSignature:

	on createSignature:signatureName content:signatureContent
		set signatureName to signatureName as text
		set signatureContent to signatureContent as text
		tell application "Microsoft Outlook"
			-- One signature per name, holding exactly the content the server sent.
			if exists signature signatureName then delete signature signatureName
			make new signature with properties {name:signatureName, content:signatureContent}
		end tell
	end createSignature:content:

	on deleteSignature:signatureName
		set signatureName to signatureName as text
		tell application "Microsoft Outlook"
			if exists signature signatureName then delete signature signatureName
		end tell
	end deleteSignature:

	on deleteSignatures()
		tell application "Microsoft Outlook" to delete every signature
	end deleteSignatures

	on applySignaturesFor:accountName
		my chooseDefaults(accountName as text, newSignatureName, replySignatureName)
	end applySignaturesFor:

	on applyDefaultNewSignatureFor:accountName
		my chooseDefaults(accountName as text, newSignatureName, missing value)
	end applyDefaultNewSignatureFor:

	on applyDefaultReplySignatureFor:accountName
		my chooseDefaults(accountName as text, missing value, replySignatureName)
	end applyDefaultReplySignatureFor:

	on applyNoneSignaturesFor:accountName
		my chooseDefaults(accountName as text, noSignature, noSignature)
	end applyNoneSignaturesFor:

	on applyNoneDefaultNewSignatureFor:accountName
		my chooseDefaults(accountName as text, noSignature, missing value)
	end applyNoneDefaultNewSignatureFor:

	on applyNoneDefaultReplySignatureFor:accountName
		my chooseDefaults(accountName as text, missing value, noSignature)
	end applyNoneDefaultReplySignatureFor:

	-- Opens Preferences > Signatures, selects the account and picks the signature in the pop-up
	-- button of each default; missing value leaves that default as it is.
	on chooseDefaults(accountName, newChoice, replyChoice)
		tell application "Microsoft Outlook" to activate
		tell application "System Events"
			tell process "Microsoft Outlook"
				set frontmost to true
				keystroke "," using command down
				my waitFor(a reference to window "Outlook Preferences")
				click button "Signatures" of window "Outlook Preferences"
				my waitFor(a reference to window "Signatures")
				tell window "Signatures"
					my choose(pop up button "Account:", accountName)
					if newChoice is not missing value then my choose(pop up button "New messages:", newChoice)
					if replyChoice is not missing value then my choose(pop up button "Replies/forwards:", replyChoice)
				end tell
			end tell
		end tell
	end chooseDefaults

	on choose(popUp, itemName)
		tell application "System Events"
			click popUp
			delay 0.3
			click menu item itemName of menu 1 of popUp
			delay 0.3
		end tell
	end choose

	-- Outlook opens its windows asynchronously; give up after ten seconds.
	on waitFor(elementReference)
		repeat 50 times
			tell application "System Events"
				if exists (contents of elementReference) then return
			end tell
			delay 0.2
		end repeat
		error "Outlook did not open its Signatures preferences"
	end waitFor
end script
